#!/usr/bin/env bash
# Two builds of mivo4 on the whole-process benchmark's pictures (made by
# bench/whole/run.sh under BUILD_DIR/bench-whole), alternating in one run,
# pinned to one core: the same export command line as run.sh, medians of REPS
# runs (fewer for the large pictures) of wall and CPU time (user + system, from
# /usr/bin/time), and the peak resident memory. Prints a Markdown table.
# usage: bench/whole/versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]
set -euo pipefail
old=${1:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}
new=${2:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}
work=$(cd "${3:?usage: versus.sh OLD_MIVO4 NEW_MIVO4 BUILD_DIR [REPS]}" && pwd)/bench-whole
reps=${4:-9}
[ -s "$work/page24-9933x14043.ppm" ] || { echo "no pictures in $work: run bench/whole/run.sh first" >&2; exit 1; }
exec python3 - "$old" "$new" "$work" "$reps" <<'PY'
import os, statistics, subprocess, sys, time
old, new, work, reps = sys.argv[1], sys.argv[2], sys.argv[3], int(sys.argv[4])

def run(cmd):
    t0 = time.perf_counter()
    p = subprocess.run(["/usr/bin/time", "-f", "%U %S %M", "taskset", "-c", "0"] + cmd,
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    wall = time.perf_counter() - t0
    if p.returncode != 0:
        sys.exit("failed: %s\n%s" % (" ".join(cmd), p.stderr))
    user, system, rss = p.stderr.strip().splitlines()[-1].split()
    return wall, float(user) + float(system), int(rss) / 1024.0

def load():
    with open("/proc/loadavg") as f:
        return " ".join(f.read().split()[:3])

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
    for c in cmds:
        run(c)  # warm the page cache and the loaders
    res = [[], []]
    for _ in range(n):
        for i, c in enumerate(cmds):
            res[i].append(run(c))
    med = lambda i, k: statistics.median(x[k] for x in res[i])
    ratio = "%.2f" % (med(1, 1) / med(0, 1)) if med(0, 1) > 0 else "—"
    print("| %s | %.3f s | %.3f s | %.2f s | %.2f s | %s | %.1f MiB | %.1f MiB |" %
          (label, med(0, 0), med(1, 0), med(0, 1), med(1, 1), ratio,
           max(x[2] for x in res[0]), max(x[2] for x in res[1])))
    sys.stdout.flush()
print()
print("load average after: %s" % load())
PY
