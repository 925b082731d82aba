#!/usr/bin/env bash
# Keeps the benchmarks from rotting: installs the peers, builds every benchmark in a Release tree
# (build-bench), runs each once on a few small cases, and writes a report of that run with its chart
# into build-bench/smoke/ (bench/RESULTS.md is left alone). Any benchmark that fails its check
# against the peer, or crashes, fails the script. The figures mean nothing: one iteration batch each.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/bench-common.sh
started=$SECONDS
bench_install_peers
bench_build build-bench

out=build-bench/smoke
rm -rf "$out"
mkdir -p "$out"
quick=(--benchmark_min_time=0.01)
# The cases each binary runs: one or a few small ones, every library's code path at least once
# where that is cheap.
declare -A cases=(
  [bench_array]='input:0/MB:10/'
  [bench_base64]='bytes:1024'
  [bench_crc]='/4096$'
  [bench_eno]='other_nodes:1000/threads:2'
  [bench_hash]='Find<(Krv|Std)>'
  [bench_json]='Parse/config|Serialize/hook'
  [bench_log]='^BM_(KrvLogWrite|SpdlogAsyncPaced|GlogWrite)/.*threads:2$'
  [bench_mempool]='threads:2|TickGet'
  [bench_reltmr]='StartStop/armed:1000/beyond_rev:0'
  [bench_time]='threads:2'
)
for bench in $(bench_binaries); do
  extra=()
  [ "$bench" != bench_array ] || extra=(--no_peak_memory)
  bench_run build-bench "$out" "$bench" "$bench" "${quick[@]}" "${extra[@]}" \
    --benchmark_filter="${cases[$bench]:-.}" >/dev/null
  if grep -q '"error_occurred": true' "$out/$bench.json"; then
    grep -A1 '"error_occurred": true' "$out/$bench.json" >&2
    echo "bench smoke: $bench reported an error" >&2
    exit 1
  fi
done
/usr/bin/python3 bench/report.py --results "$out" --tree build-bench --out "$out/RESULTS.md"
echo "bench smoke: every benchmark built and ran ($((SECONDS - started)) s)"
