#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs one of them for a while.
# usage: scripts/fuzz.sh [TARGET] [SECONDS]     (default: profile_fuzz 120)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
target=${1:-profile_fuzz}
seconds=${2:-120}
cmake -S . -B out/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DMIVO4_SANITIZE=ON \
  -DMIVO4_BUILD_FUZZ=ON -DMIVO4_BUILD_TESTS=OFF -DMIVO4_BUILD_TOOLS=OFF >/dev/null
cmake --build out/fuzz --target "$target"
corpus=out/fuzz/corpus/$target
mkdir -p "$corpus"
# A target whose inputs are larger (whole documents) says so in seeds/TARGET.max_len.
max_len=4096
[ -f fuzz/seeds/"$target".max_len ] && max_len=$(cat fuzz/seeds/"$target".max_len)
exec out/fuzz/fuzz/"$target" "$corpus" fuzz/seeds/"$target" -max_total_time="$seconds" -max_len="$max_len"
