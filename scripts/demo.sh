#!/usr/bin/env bash
# Builds the library and the demonstration service optimised (build-demo) and runs the service.
# Arguments go to krv-demo: a configuration file other than examples/krv-demo.json.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
[ "$jobs" -le 2 ] || jobs=2
cmake -S . -B build-demo -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_TESTS=OFF
cmake --build build-demo -j "$jobs" --target krv-demo
./build-demo/examples/krv-demo "$@"
