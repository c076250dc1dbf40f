#!/usr/bin/env bash
# Many pictures: 20 A4 pages at 300 dpi (10 of the 24-bit photo page, 10 of
# the 1-bit text page, as PPM and PBM) converted by `mivo4 export -o DIR -j 1`
# and `-j 2` against GraphicsMagick's batch (`gm mogrify -format cal
# -monochrome`) and a shell loop of `gm convert`, side by side in one run,
# wall time (median of REPS runs each, alternating), on this machine's cores.
# usage: bench/whole/batch.sh BUILD_DIR [REPS]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: batch.sh BUILD_DIR [REPS]}" && pwd)
reps=${2:-3}
work="$build/bench-whole"
batch="$work/batch"
mkdir -p "$work"
if [ ! -s "$work/page24.ppm" ] || [ ! -s "$work/page1.pbm" ]; then
  c++ -O2 -std=c++20 "$here/make_pictures.cpp" -o "$work/make_pictures"
  "$work/make_pictures" "$work"
fi
rm -rf "$batch" && mkdir -p "$batch/in" "$batch/out"
for i in $(seq -w 1 10); do
  cp "$work/page24.ppm" "$batch/in/photo$i.ppm"
  cp "$work/page1.pbm" "$batch/in/text$i.pbm"
done

exec python3 - "$build/mivo4" "$batch" "$reps" <<'PY'
import glob, os, shutil, statistics, subprocess, sys, time

mivo4, batch, reps = sys.argv[1], sys.argv[2], int(sys.argv[3])
inputs = sorted(glob.glob(os.path.join(batch, "in", "*")))
out = os.path.join(batch, "out")

def clean():
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)

def timed(cmd, shell=False):
    clean()
    t0 = time.perf_counter()
    subprocess.run(cmd, shell=shell, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - t0

def mogrify():
    # mogrify writes beside its inputs: it gets its own copies.
    work = os.path.join(batch, "mogrify")
    shutil.rmtree(work, ignore_errors=True)
    shutil.copytree(os.path.join(batch, "in"), work)
    t0 = time.perf_counter()
    subprocess.run(["gm", "mogrify", "-format", "cal", "-monochrome"] + sorted(glob.glob(os.path.join(work, "*"))),
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - t0

loop = "for f in %s/in/*; do n=$(basename \"$f\"); gm convert \"$f\" -monochrome %s/\"${n%%.*}\".cal; done" % (batch, out)
jobs = {
    "mivo4 -j 1": lambda: timed([mivo4, "export", "--no-verify", "-o", out, "-j", "1"] + inputs),
    "mivo4 -j 2": lambda: timed([mivo4, "export", "--no-verify", "-o", out, "-j", "2"] + inputs),
    "gm mogrify": mogrify,
    "gm convert loop": lambda: timed(["bash", "-c", loop]),
}
times = {k: [] for k in jobs}
for _ in range(reps):
    for k, f in jobs.items():
        times[k].append(f())
med = {k: statistics.median(v) for k, v in times.items()}
print("20 A4 pages at 300 dpi (10 24-bit photo, 10 1-bit text), %d runs each, median wall time, %d cores"
      % (reps, os.cpu_count()))
print("| job | wall | pictures/s | against mivo4 -j 1 |")
print("|---|---|---|---|")
for k in jobs:
    print("| %s | %.2f s | %.1f | %.2f× |" % (k, med[k], len(inputs) / med[k], med["mivo4 -j 1"] / med[k]))
PY
