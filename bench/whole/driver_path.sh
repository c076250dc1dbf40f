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
exec python3 - "$here" "$build/mivo4" "$work" "$reps" <<'PY'
import os, statistics, sys

sys.path.insert(0, sys.argv[1])
from measure import peak, pin, run

mivo4, work, reps = sys.argv[2], sys.argv[3], int(sys.argv[4])
pin()

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
    ma, mb = peak(gdp), peak(bmp)  # also warm the page cache and the loaders
    a, b = [], []
    for _ in range(reps):
        a.append(run(gdp)); b.append(run(bmp))
    with open(os.path.join(work, "out-gdp.cal"), "rb") as f1, open(os.path.join(work, "out-bmp.cal"), "rb") as f2:
        same = f1.read() == f2.read()
    ta = statistics.median(x.wall for x in a); tb = statistics.median(x.wall for x in b)
    ca = statistics.median(x.cpu for x in a); cb = statistics.median(x.cpu for x in b)
    print("%-28s %10.3f %10.3f %6.2fx %9.3f %9.3f %6.2fx %10.1f %10.1f %8.2fx%s" % (label, ta, tb, ta / tb, ca, cb,
          ca / cb if cb > 0 else float("nan"), ma, mb, ma * 1048576.0 / input_bytes, "" if same else "  (outputs differ!)"))
PY
