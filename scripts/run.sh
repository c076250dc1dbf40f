#!/usr/bin/env bash
# The main job: builds the module and the mivo4 host, exports the built-in test
# chart as a GP4 file (out/demo.cal), checks it and decodes it to a PNG
# (out/demo.png) that any picture viewer opens. With arguments, builds and
# runs mivo4 with them instead, in the caller's directory (so relative paths
# mean what the caller means).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
cmake -S "$root" -B "$root/out/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ >/dev/null
cmake --build "$root/out/release" -j "$(nproc)" --target mivo4 mivo42 >/dev/null
mivo4="$root/out/release/mivo4"
if [ $# -gt 0 ]; then exec "$mivo4" "$@"; fi
mkdir -p "$root/out"
"$mivo4" export --demo "$root/out/demo.cal"
"$mivo4" info "$root/out/demo.cal"
"$mivo4" decode "$root/out/demo.cal" "$root/out/demo.png"
echo "decoded picture: $root/out/demo.png"
