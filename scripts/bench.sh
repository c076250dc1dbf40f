#!/usr/bin/env bash
# Builds the benchmarks (optimised) and runs them; arguments go to each benchmark.
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
