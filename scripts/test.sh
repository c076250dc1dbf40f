#!/usr/bin/env bash
# Runs the whole test suite twice: an optimised g++ build, and a clang++
# AddressSanitizer + UndefinedBehaviorSanitizer build. Warnings are errors.
# Then every fuzz target runs briefly (MIVO4_FUZZ_SECONDS, default 20 s each).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh

jobs=$(nproc)

echo "== optimised build (g++, Release)"
cmake -S . -B out/release -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DMIVO4_WERROR=ON >/dev/null
cmake --build out/release -j "$jobs"
ctest --test-dir out/release -j "$jobs" --output-on-failure

echo "== sanitizer build (clang++, AddressSanitizer + UndefinedBehaviorSanitizer)"
cmake -S . -B out/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DMIVO4_SANITIZE=ON -DMIVO4_WERROR=ON >/dev/null
cmake --build out/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir out/asan -j "$jobs" --output-on-failure

echo "== fuzz targets, briefly (clang, AddressSanitizer + UndefinedBehaviorSanitizer)"
bash scripts/fuzz.sh all "${MIVO4_FUZZ_SECONDS:-20}"
