#!/usr/bin/env bash
# Whole-process benchmark: `mivo4 export` against `gm convert IN -monochrome
# OUT.cal`, side by side in one run, both pinned to one core (core 0),
# on pictures made here deterministically (bench/whole/make_pictures.cpp):
#   A4      a 24-bit 2480 x 3508 page (PPM, PNG, JPEG) and a 1-bit text page
#   A4@600  the 24-bit page drawn at 4960 x 7016
#   A0      the 24-bit page and the 1-bit page drawn at 9933 x 14043
# each exported at its own size at 300 dpi. Each job runs REPS times (default
# 7; BIG_REPS, default 3, for the A4@600 and A0 pictures) alternating the two
# programs after one warm-up run each. Reported: the median wall time and the
# median CPU time (user + system, as wait4 reports them: on a shared machine
# the steadier of the two), their ratios, the cost per pixel, and the peak
# resident memory also as a multiple of the input bitmap (the rows the host
# hands the module, padded to 4 bytes; from the warm-up runs, under GNU time).
# How one process is measured: bench/whole/measure.py. The table is printed in
# Markdown, with the load average before and after. mivo4 runs with
# --no-verify (gm does not decode its result again); the cost of that check is
# reported after the table.
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

exec python3 - "$here" "$mivo4" "$work" "$reps" "$big_reps" <<'PY'
import os, statistics, sys

sys.path.insert(0, sys.argv[1])
from measure import load, peak, pin, run

mivo4, work, reps, big_reps = sys.argv[2], sys.argv[3], int(sys.argv[4]), int(sys.argv[5])
pin()

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
    ma, mb = peak(ours), peak(theirs)  # also warm the page cache and the loaders
    a, b = [], []
    for _ in range(big_reps if big else reps):
        a.append(run(ours)); b.append(run(theirs))
    ta = statistics.median(x.wall for x in a); tb = statistics.median(x.wall for x in b)
    ca = statistics.median(x.cpu for x in a); cb = statistics.median(x.cpu for x in b)
    px = w * h
    inputMiB = rowbytes(w, bits) * h / 1048576.0
    print("| %s | %d × %d | %.3f s | %.3f s | %.3f× | %.3f s | %.3f s | %.3f× | %.1f | %.1f | %.1f MiB | %.2f× | %.1f MiB |" %
          (label, w, h, ta, tb, ta / tb, ca, cb, ca / cb, ca * 1e9 / px, cb * 1e9 / px, ma, ma / inputMiB, mb))
    sys.stdout.flush()
print()
# The host's check of its result, on the A4 page: the same export with it.
src = os.path.join(work, "page24.ppm")
base = [mivo4, "export", "--size", "user", "--source-dpi", "300", "--dpi", "300", src,
        os.path.join(work, "out-mivo4.cal")]
off = [run(base[:2] + ["--no-verify"] + base[2:]) for _ in range(reps)]
on = [run(base) for _ in range(reps)]
print("the host's check of its result (decoding it again with libtiff, on by default), 24-bit A4: "
      "%.3f s wall, %.3f s CPU more" % (statistics.median(x.wall for x in on) - statistics.median(x.wall for x in off),
                                        statistics.median(x.cpu for x in on) - statistics.median(x.cpu for x in off)))
print("load average after: %s" % load())
PY
