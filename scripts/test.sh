#!/usr/bin/env bash
# Builds and runs every test twice: a plain debug build, then under AddressSanitizer and
# UndefinedBehaviorSanitizer in a separate build tree. Warnings are errors.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs=$(nproc 2>/dev/null || echo 2)

run_suite() {
  local dir=$1; shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DKRV_WERROR=ON "$@"
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs"
}

run_suite build
run_suite build-asan -DKRV_SANITIZE=ON
