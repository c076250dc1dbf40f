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

# One target: its own corpus directory (kept between runs) and its seeds; a
# target whose inputs are larger (whole documents) says so in
# seeds/TARGET.max_len. Findings land in out/fuzz/artifacts.
run_one() {
  local name=$1
  local corpus=out/fuzz/corpus/$name
  local max_len=4096
  [ -f fuzz/seeds/"$name".max_len ] && max_len=$(cat fuzz/seeds/"$name".max_len)
  mkdir -p "$corpus" fuzz/seeds/"$name" out/fuzz/artifacts
  out/fuzz/fuzz/"$name" "$corpus" fuzz/seeds/"$name" -max_total_time="$seconds" -max_len="$max_len" \
    -artifact_prefix=out/fuzz/artifacts/"$name"- -print_final_stats=1
}

if [[ "$target" != all ]]; then
  cmake --build out/fuzz --target "$target"
  run_one "$target"
  exit $?
fi

# Every fuzz/NAME_fuzz.cpp is a target of that name.
mapfile -t targets < <(cd fuzz && ls *_fuzz.cpp | sed 's/\.cpp$//')
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
