#!/usr/bin/env bash
# Whole-process benchmark: `mivo4 export` against `gm convert IN -monochrome
# OUT.cal`, side by side in one run, both pinned to one core (taskset -c 0),
# on pictures made here deterministically (bench/whole/make_pictures.cpp):
#   A4      a 24-bit 2480 x 3508 page (PPM, PNG, JPEG) and a 1-bit text page
#   A4@600  the 24-bit page drawn at 4960 x 7016
#   A0      the 24-bit page and the 1-bit page drawn at 9933 x 14043
# each exported at its own size at 300 dpi. Each job runs REPS times (default
# 7; BIG_REPS, default 3, for the A4@600 and A0 pictures) alternating the two
# programs after one warm-up run each. Reported: the median wall time and the
# median CPU time (user + system, from /usr/bin/time -v: on a shared machine
# the steadier of the two), their ratios, the cost per pixel, and the peak
# resident memory also as a multiple of the input bitmap (the rows the host
# hands the module, padded to 4 bytes). The table is printed in Markdown, with
# the load average before and after. mivo4 runs with --no-verify (gm does not
# decode its result again); the cost of that check is reported after the table.
# usage: bench/whole/run.sh BUILD_DIR [REPS] [BIG_REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: run.sh BUILD_DIR [REPS] [BIG_REPS]}" && pwd)
reps=${2:-7}
big_reps=${3:-3}
mivo4="$build/mivo4"
work="$build/bench-whole"
mkdir -p "$work"
command -v gm >/dev/null || { echo "GraphicsMagick (gm) is not installed" >&2; exit 1; }
[ -x /usr/bin/time ] || { echo "/usr/bin/time (GNU time) is not installed" >&2; exit 1; }

if [ ! -x "$work/make_pictures" ] || [ "$here/make_pictures.cpp" -nt "$work/make_pictures" ]; then
  c++ -O2 -std=c++20 "$here/make_pictures.cpp" -o "$work/make_pictures"
  rm -f "$work"/page*.p?m "$work"/page*.png "$work"/page*.jpg
fi
[ -s "$work/page24.ppm" ] && [ -s "$work/page1.pbm" ] || "$work/make_pictures" "$work"
[ -s "$work/page24-4960x7016.ppm" ] || "$work/make_pictures" "$work" 4960 7016
[ -s "$work/page24-9933x14043.ppm" ] || "$work/make_pictures" "$work" 9933 14043
[ -s "$work/page24.png" ] || gm convert "$work/page24.ppm" "$work/page24.png"
[ -s "$work/page24.jpg" ] || gm convert "$work/page24.ppm" -quality 90 "$work/page24.jpg"
[ -s "$work/page1.png" ] || gm convert "$work/page1.pbm" "$work/page1.png"

exec python3 - "$mivo4" "$work" "$reps" "$big_reps" <<'PY'
import os, statistics, subprocess, sys, time

mivo4, work, reps, big_reps = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
pin = ["taskset", "-c", "0"]

def run(cmd):
    """Wall time and CPU time in seconds, peak resident memory in MiB of one process."""
    t0 = time.perf_counter()
    p = subprocess.run(["/usr/bin/time", "-v"] + pin + cmd, stdout=subprocess.DEVNULL,
                       stderr=subprocess.PIPE, text=True)
    wall = time.perf_counter() - t0
    if p.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(cmd), p.stderr))
    def field(name):
        return next(l.split(": ")[1] for l in p.stderr.splitlines() if name in l)
    rss = int(field("Maximum resident set size"))
    cpu = float(field("User time (seconds)")) + float(field("System time (seconds)"))
    return wall, rss / 1024.0, cpu

def load():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])

def rowbytes(w, bits):
    return ((w * bits + 7) // 8 + 3) // 4 * 4

A4, A4_600, A0 = (2480, 3508), (4960, 7016), (9933, 14043)
jobs = [
    ("24-bit A4, PPM", "page24.ppm", A4, 24, False),
    ("24-bit A4, PNG", "page24.png", A4, 24, False),
    ("24-bit A4, JPEG", "page24.jpg", A4, 24, False),
    ("24-bit A4 @ 600 dpi, PPM", "page24-4960x7016.ppm", A4_600, 24, True),
    ("24-bit A0, PPM", "page24-9933x14043.ppm", A0, 24, True),
    ("1-bit A4 text, PBM", "page1.pbm", A4, 1, False),
    ("1-bit A4 text, PNG", "page1.png", A4, 1, False),
    ("1-bit A0 text, PBM", "page1-9933x14043.pbm", A0, 1, True),
]
print("load average before: %s" % load())
print()
print("| picture | size | mivo4 wall | gm wall | ratio | mivo4 CPU | gm CPU | CPU ratio | mivo4 ns/px (CPU) | gm ns/px (CPU) | mivo4 peak | peak / input | gm peak |")
print("|---|---|---|---|---|---|---|---|---|---|---|---|---|")
sys.stdout.flush()
for label, name, (w, h), bits, big in jobs:
    src = os.path.join(work, name)
    # The same job as gm's: read, convert, code, write. The host's own check
    # of its result (a second decode with libtiff, on by default) is left
    # out here and timed on its own below.
    ours = [mivo4, "export", "--no-verify", "--size", "user", "--source-dpi", "300", "--dpi", "300",
            src, os.path.join(work, "out-mivo4.cal")]
    theirs = ["gm", "convert", src, "-monochrome", os.path.join(work, "out-gm.cal")]
    run(ours); run(theirs)  # warm the page cache and the loaders
    a, b = [], []
    for _ in range(big_reps if big else reps):
        a.append(run(ours)); b.append(run(theirs))
    ta = statistics.median(x[0] for x in a); tb = statistics.median(x[0] for x in b)
    ca = statistics.median(x[2] for x in a); cb = statistics.median(x[2] for x in b)
    ma = max(x[1] for x in a); mb = max(x[1] for x in b)
    px = w * h
    inputMiB = rowbytes(w, bits) * h / 1048576.0
    # CPU times come in hundredths of a second: below that, no ratio.
    cpu = lambda c: "%.2f s" % c if c >= 0.01 else "< 0.01 s"
    measured = ca >= 0.01 and cb >= 0.01
    print("| %s | %d × %d | %.3f s | %.3f s | %.3f× | %s | %s | %s | %s | %.1f | %.1f MiB | %.2f× | %.1f MiB |" %
          (label, w, h, ta, tb, ta / tb, cpu(ca), cpu(cb), "%.3f×" % (ca / cb) if measured else "—",
           "%.1f" % (ca * 1e9 / px) if ca >= 0.01 else "—", cb * 1e9 / px, ma, ma / inputMiB, mb))
    sys.stdout.flush()
print()
# The host's check of its result, on the A4 page: the same export with it.
src = os.path.join(work, "page24.ppm")
base = [mivo4, "export", "--size", "user", "--source-dpi", "300", "--dpi", "300", src,
        os.path.join(work, "out-mivo4.cal")]
off = [run(base[:2] + ["--no-verify"] + base[2:]) for _ in range(reps)]
on = [run(base) for _ in range(reps)]
print("the host's check of its result (decoding it again with libtiff, on by default), 24-bit A4: "
      "%.3f s wall, %.2f s CPU more" % (statistics.median(x[0] for x in on) - statistics.median(x[0] for x in off),
                                        statistics.median(x[2] for x in on) - statistics.median(x[2] for x in off)))
print("load average after: %s" % load())
PY
