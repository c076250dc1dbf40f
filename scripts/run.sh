#!/usr/bin/env bash
# The main job: builds the module and the mivo4 host, then runs the host.
# With no arguments it loads mivo42.flt and prints its entry table and version;
# any arguments are passed to mivo4.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B out/release -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build out/release -j "$(nproc)" --target mivo4 mivo42 >/dev/null
if [ $# -eq 0 ]; then set -- info; fi
exec out/release/mivo4 "$@"
