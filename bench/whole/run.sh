#!/usr/bin/env bash
# Whole-process benchmark: `mivo4 export` against `gm convert IN -monochrome
# OUT.cal`, side by side in one run, on pictures made here deterministically:
#   (a) a 24-bit 2480 x 3508 page exported at its own size at 300 dpi
#   (b) a 1-bit 2480 x 3508 text-like page, likewise
# Each job runs REPS times (default 7) alternating the two programs; the
# median wall time, the ratio and the peak resident memory (from
# /usr/bin/time -v, else the child's rusage) are reported.
# usage: bench/whole/run.sh BUILD_DIR [REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: run.sh BUILD_DIR [REPS]}" && pwd)
reps=${2:-7}
mivo4="$build/mivo4"
work="$build/bench-whole"
mkdir -p "$work"
command -v gm >/dev/null || { echo "GraphicsMagick (gm) is not installed" >&2; exit 1; }

if [ ! -s "$work/page24.ppm" ] || [ ! -s "$work/page1.pbm" ]; then
  c++ -O2 -std=c++20 "$here/make_pictures.cpp" -o "$work/make_pictures"
  "$work/make_pictures" "$work"
fi
[ -s "$work/page24.png" ] || gm convert "$work/page24.ppm" "$work/page24.png"
[ -s "$work/page1.png" ] || gm convert "$work/page1.pbm" "$work/page1.png"

exec python3 - "$mivo4" "$work" "$reps" <<'PY'
import os, resource, shutil, statistics, subprocess, sys, time

mivo4, work, reps = sys.argv[1], sys.argv[2], int(sys.argv[3])
gnu_time = "/usr/bin/time" if os.access("/usr/bin/time", os.X_OK) else None

def run(cmd):
    """Wall time in seconds and peak resident memory in MiB of one process."""
    if gnu_time:
        t0 = time.perf_counter()
        p = subprocess.run([gnu_time, "-v"] + cmd, stdout=subprocess.DEVNULL,
                           stderr=subprocess.PIPE, text=True)
        wall = time.perf_counter() - t0
        if p.returncode != 0:
            sys.exit("failed: %s\n%s" % (" ".join(cmd), p.stderr))
        rss = next(int(l.split(":")[1]) for l in p.stderr.splitlines()
                   if "Maximum resident set size" in l)
        return wall, rss / 1024.0
    t0 = time.perf_counter()
    pid = os.fork()
    if pid == 0:
        fd = os.open(os.devnull, os.O_WRONLY)
        os.dup2(fd, 1); os.dup2(fd, 2)
        os.execvp(cmd[0], cmd)
    _, status, usage = os.wait4(pid, 0)
    wall = time.perf_counter() - t0
    if os.waitstatus_to_exitcode(status) != 0:
        sys.exit("failed: " + " ".join(cmd))
    return wall, usage.ru_maxrss / 1024.0

jobs = [
    ("a", "24-bit 2480x3508, PPM", "page24.ppm"),
    ("a", "24-bit 2480x3508, PNG", "page24.png"),
    ("b", "1-bit 2480x3508 text, PBM", "page1.pbm"),
    ("b", "1-bit 2480x3508 text, PNG", "page1.png"),
]
print("whole-process export, %d runs each, median wall time; peak RSS" % reps)
print("%-3s %-28s %10s %10s %8s %11s %11s" % ("", "picture", "mivo4 s", "gm s", "ratio", "mivo4 MiB", "gm MiB"))
for tag, label, name in jobs:
    src = os.path.join(work, name)
    ours = [mivo4, "export", "--size", "user", "--source-dpi", "300", "--dpi", "300",
            src, os.path.join(work, "out-mivo4.cal")]
    theirs = ["gm", "convert", src, "-monochrome", os.path.join(work, "out-gm.cal")]
    run(ours); run(theirs)  # warm the page cache and the loaders
    a, b = [], []
    for _ in range(reps):
        a.append(run(ours)); b.append(run(theirs))
    ta = statistics.median(x[0] for x in a); tb = statistics.median(x[0] for x in b)
    ma = max(x[1] for x in a); mb = max(x[1] for x in b)
    print("%-3s %-28s %10.3f %10.3f %7.2fx %11.1f %11.1f" % (tag, label, ta, tb, ta / tb, ma, mb))
print("input bitmap (a): %.1f MiB" % (2480 * 3508 * 3 / 1048576.0))
PY
