#!/usr/bin/env bash
# Builds the benchmarks (optimised) and runs them; arguments go to each Google
# Benchmark. Then the whole-process comparison of mivo4 export against
# GraphicsMagick (bench/whole/run.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B out/bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DMIVO4_BUILD_BENCH=ON \
  -DMIVO4_BUILD_TESTS=OFF >/dev/null
cmake --build out/bench
for b in $(find out/bench/bench -maxdepth 2 -type f -executable -name 'mivo4_bench_*' | sort); do
  echo "== $b"
  "$b" "$@"
done
echo "== compound documents: module, olefile and a plain read (pinned to core 0)"
taskset -c 0 out/bench/bench/cfb_bench "$@"
echo "== whole process: mivo4 export against gm convert"
bash bench/whole/run.sh out/bench
