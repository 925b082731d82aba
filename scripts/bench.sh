#!/usr/bin/env bash
# Builds the benchmarks in a Release tree of their own (build-bench) and runs them. Not part of the
# test run. Arguments go to every benchmark binary (e.g. --benchmark_filter=Parse); without any,
# each case runs three times and the report shows mean, median and spread, since the machine is
# usually shared.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh libbenchmark-dev libuv1-dev libspdlog-dev libcjson-dev rapidjson-dev \
  libdivsufsort-dev zlib1g-dev libboost-dev libjemalloc-dev libssl-dev nlohmann-json3-dev \
  libjansson-dev
jobs=$(nproc 2>/dev/null || echo 2)
[ "$jobs" -le 2 ] || jobs=2

cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DKRV_BUILD_BENCH=ON -DKRV_BUILD_TESTS=OFF \
  -DKRV_BUILD_EXAMPLES=OFF
cmake --build build-bench -j "$jobs" --target bench_reltmr bench_log bench_json \
  bench_array bench_time bench_crc bench_mempool bench_hash bench_base64

[ $# -gt 0 ] || set -- --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

for bench in bench_reltmr bench_log bench_json bench_array bench_time bench_crc bench_mempool bench_hash \
  bench_base64; do
  echo "== $bench"
  "./build-bench/bench/$bench" "$@"
done
