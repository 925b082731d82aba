#!/usr/bin/env bash
# Builds the library and runs the demonstration program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug
cmake --build build -j "$(nproc 2>/dev/null || echo 2)" --target krv_demo
./build/examples/krv_demo
