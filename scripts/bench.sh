#!/usr/bin/env bash
# Builds the benchmarks in a Release tree of their own (build-bench), runs every one of them, and
# writes bench/RESULTS.md with its chart bench/results.png: per workload of bench/workloads.txt our
# figure, each peer's and the ratio, all from this one run. Not part of the test run.
#
# Without arguments each case runs three times, the repetitions of a binary's cases shuffled
# together so that a burst of load from elsewhere hits ours and the peer's alike (the report takes
# medians), since the machine is usually shared. Arguments replace that and go to every benchmark binary (e.g.
# --benchmark_filter=Parse); such a partial run writes its report to build-bench/results/ and
# leaves the committed one alone.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/bench-common.sh
bench_install_peers
bench_build build-bench

out=build-bench/results
rm -rf "$out"
mkdir -p "$out"
report=bench/RESULTS.md
if [ $# -gt 0 ]; then
  report=$out/RESULTS.md
else
  set -- --benchmark_repetitions=3 --benchmark_enable_random_interleaving=true \
    --benchmark_display_aggregates_only=true
fi

failed=()
for bench in $(bench_binaries); do
  bench_run build-bench "$out" "$bench" "$bench" "$@" || failed+=("$bench")
done
# Local time once more in a zone with daylight-saving rules, where localtime_r does more work.
bench_run build-bench "$out" bench_time.berlin TZ=Europe/Berlin bench_time "$@" || failed+=(bench_time.berlin)
echo "end $(cut -d' ' -f1-3 /proc/loadavg)" >>"$out/load.txt"

/usr/bin/python3 bench/report.py --results "$out" --tree build-bench --out "$report"
if [ ${#failed[@]} -gt 0 ]; then
  echo "benchmarks that failed: ${failed[*]}" >&2
  exit 1
fi
