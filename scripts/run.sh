#!/usr/bin/env bash
# The main job: builds the module and the mivo4 host, exports the built-in test
# chart as a GP4 file (out/demo.cal), checks it and decodes it to a PNG
# (out/demo.png) that any picture viewer opens. With arguments, builds and
# runs mivo4 with them instead.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B out/release -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ >/dev/null
cmake --build out/release -j "$(nproc)" --target mivo4 mivo42 >/dev/null
if [ $# -gt 0 ]; then exec out/release/mivo4 "$@"; fi
mkdir -p out
out/release/mivo4 export --demo out/demo.cal
out/release/mivo4 info out/demo.cal
out/release/mivo4 decode out/demo.cal out/demo.png
echo "decoded picture: $(pwd)/out/demo.png"
