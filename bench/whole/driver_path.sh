#!/usr/bin/env bash
# The driver path against the bitmap path, whole process, side by side in one
# run: `mivo4 export --via gdp` (the picture sent to the raster driver as an
# image of cell arrays) and `mivo4 export --via bitmap` (ExportCellData) on
# the A4 pages of run.sh, pinned to one core. Median wall time of REPS runs
# each, alternating, and peak resident memory against the input bitmap.
# usage: bench/whole/driver_path.sh BUILD_DIR [REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: driver_path.sh BUILD_DIR [REPS]}" && pwd)
reps=${2:-7}
work="$build/bench-whole"
mkdir -p "$work"
if [ ! -s "$work/page24.ppm" ] || [ ! -s "$work/page1.pbm" ]; then
  c++ -O2 -std=c++20 "$here/make_pictures.cpp" -o "$work/make_pictures"
  "$work/make_pictures" "$work"
fi
pin=()
command -v taskset >/dev/null && pin=(taskset -c 0)

exec python3 - "$build/mivo4" "$work" "$reps" "${pin[@]}" <<'PY'
import os, statistics, subprocess, sys, time

mivo4, work, reps, pin = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4:]

def run(cmd):
    t0 = time.perf_counter()
    p = subprocess.run(pin + ["/usr/bin/time", "-v"] + cmd, stdout=subprocess.DEVNULL,
                       stderr=subprocess.PIPE, text=True)
    wall = time.perf_counter() - t0
    if p.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(cmd), p.stderr))
    def field(name):
        return next(l.split(":", 1)[1] for l in p.stderr.splitlines() if name in l)
    rss = int(field("Maximum resident set size"))
    cpu = float(field("User time (seconds)")) + float(field("System time (seconds)"))
    return wall, rss / 1024.0, cpu

jobs = [("24-bit 2480x3508, PPM", "page24.ppm", 2480 * 3508 * 3),
        ("1-bit 2480x3508 text, PBM", "page1.pbm", ((2480 + 31) // 32 * 4) * 3508)]
print("driver path against bitmap path, %d runs each, median wall time; peak RSS" % reps)
print("%-28s %10s %10s %7s %9s %9s %7s %10s %10s %9s" % ("picture", "gdp s", "bitmap s", "ratio", "gdp cpu", "bmp cpu",
      "ratio", "gdp MiB", "bmp MiB", "gdp/input"))
for label, name, input_bytes in jobs:
    src = os.path.join(work, name)
    base = [mivo4, "export", "--size", "user", "--source-dpi", "300", "--dpi", "300"]
    gdp = base + ["--via", "gdp", src, os.path.join(work, "out-gdp.cal")]
    bmp = base + ["--via", "bitmap", src, os.path.join(work, "out-bmp.cal")]
    run(gdp); run(bmp)
    a, b = [], []
    for _ in range(reps):
        a.append(run(gdp)); b.append(run(bmp))
    with open(os.path.join(work, "out-gdp.cal"), "rb") as f1, open(os.path.join(work, "out-bmp.cal"), "rb") as f2:
        same = f1.read() == f2.read()
    ta = statistics.median(x[0] for x in a); tb = statistics.median(x[0] for x in b)
    ca = statistics.median(x[2] for x in a); cb = statistics.median(x[2] for x in b)
    ma = max(x[1] for x in a); mb = max(x[1] for x in b)
    print("%-28s %10.3f %10.3f %6.2fx %9.2f %9.2f %6.2fx %10.1f %10.1f %8.2fx%s" % (label, ta, tb, ta / tb, ca, cb,
          ca / cb if cb > 0 else float("nan"), ma, mb, ma * 1048576.0 / input_bytes, "" if same else "  (outputs differ!)"))
PY
