#!/usr/bin/env bash
# Two builds of mivo4 on the whole-process benchmark's pictures (made by
# bench/whole/run.sh under BUILD_DIR/bench-whole), alternating in one run,
# pinned to one core: the same export command line as run.sh, medians of REPS
# runs (fewer for the large pictures) of wall and CPU time (user + system), and
# the peak resident memory (of the warm-up runs), each measured as run.sh does
# (bench/whole/measure.py). Prints a Markdown table.
# usage: bench/whole/versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
old=${1:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}
new=${2:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}
work=$(cd "${3:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}" && pwd)/bench-whole
reps=${4:-9}
[ -s "$work/page24-9933x14043.ppm" ] || { echo "no pictures in $work: run bench/whole/run.sh first" >&2; exit 1; }
exec python3 - "$here" "$old" "$new" "$work" "$reps" <<'PY'
import os, statistics, sys

sys.path.insert(0, sys.argv[1])
from measure import load, peak, pin, run

old, new, work, reps = sys.argv[2], sys.argv[3], sys.argv[4], int(sys.argv[5])
pin()

jobs = [("24-bit A4 PPM", "page24.ppm", reps), ("24-bit A4 JPEG", "page24.jpg", reps),
        ("24-bit A4@600 PPM", "page24-4960x7016.ppm", max(1, reps // 2)),
        ("24-bit A0 PPM", "page24-9933x14043.ppm", max(1, reps // 3)),
        ("1-bit A0 PBM", "page1-9933x14043.pbm", max(1, reps // 2))]
print("load average before: %s" % load())
print()
print("| picture | old wall | new wall | old CPU | new CPU | CPU new/old | old peak | new peak |")
print("|---|---|---|---|---|---|---|---|")
for label, name, n in jobs:
    cmds = [[b, "export", "--no-verify", "--size", "user", "--source-dpi", "300", "--dpi", "300",
             os.path.join(work, name), os.path.join(work, "versus-%d.cal" % i)] for i, b in enumerate((old, new))]
    peaks = [peak(c) for c in cmds]  # also warm the page cache and the loaders
    res = [[], []]
    for _ in range(n):
        for i, c in enumerate(cmds):
            res[i].append(run(c))
    wall = [statistics.median(x.wall for x in r) for r in res]
    cpu = [statistics.median(x.cpu for x in r) for r in res]
    print("| %s | %.3f s | %.3f s | %.3f s | %.3f s | %.2f | %.1f MiB | %.1f MiB |" %
          (label, wall[0], wall[1], cpu[0], cpu[1], cpu[1] / cpu[0],
           peaks[0], peaks[1]))
    sys.stdout.flush()
print()
print("load average after: %s" % load())
PY
