#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer + UndefinedBehavior-
# Sanitizer) and runs one of them, or every one, for a while.
# usage: scripts/fuzz.sh [TARGET|all] [SECONDS]   (default: profile_fuzz 120)
# "all" runs each target registered in fuzz/CMakeLists.txt for SECONDS, one
# after the other, and ends with a line per target: runs, coverage, result.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
target=${1:-profile_fuzz}
seconds=${2:-120}
cmake -S . -B out/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DMIVO4_SANITIZE=ON \
  -DMIVO4_BUILD_FUZZ=ON -DMIVO4_BUILD_TESTS=OFF -DMIVO4_BUILD_TOOLS=OFF >/dev/null

# One target: its own corpus directory (kept between runs) and its seeds.
run_one() {
  local name=$1
  local corpus=out/fuzz/corpus/$name
  mkdir -p "$corpus" fuzz/seeds/"$name"
  out/fuzz/fuzz/"$name" "$corpus" fuzz/seeds/"$name" -max_total_time="$seconds" -max_len=4096 \
    -print_final_stats=1
}

if [[ "$target" != all ]]; then
  cmake --build out/fuzz --target "$target"
  run_one "$target"
  exit $?
fi

mapfile -t targets < <(sed -n 's/^add_executable(\([A-Za-z0-9_]*\).*/\1/p' fuzz/CMakeLists.txt)
cmake --build out/fuzz --target "${targets[@]}"
mkdir -p out/fuzz/logs
failed=0
summary=()
for name in "${targets[@]}"; do
  echo "== $name for $seconds s"
  log=out/fuzz/logs/$name.log
  if run_one "$name" >"$log" 2>&1; then result=ok; else result=FAILED; failed=1; tail -40 "$log"; fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  summary+=("$name: ${runs:-?} runs, coverage ${cov:-?} edges, ${ft:-?} features, $result")
done
printf '%s\n' "${summary[@]}"
exit $failed
