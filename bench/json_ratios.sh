#!/usr/bin/env bash
# Our parse-and-free time over cJSON's, per document: each case runs in a process of its own (so no
# case inherits the heap another one left behind), ours and cJSON's back to back, ROUNDS times; each
# run reports the median CPU time of 3 batches. Prints the median time of each library and the median
# of the per-round ratios, which is what bench/README.md quotes. Needs the Release tree that
# scripts/bench.sh builds (build-bench).
#   bash bench/json_ratios.sh                 # every parse document, 5 rounds
#   ROUNDS=9 bash bench/json_ratios.sh config1k objects
set -euo pipefail
cd "$(dirname "$0")/.."
bin=build-bench/bench/bench_json
[ -x "$bin" ] || { echo "build $bin first (bash scripts/bench.sh --benchmark_filter=none)" >&2; exit 1; }
rounds=${ROUNDS:-5}
[ $# -gt 0 ] || set -- config1k arrays objects numbers10k numbers100k numbers1m records config12k

median_cpu() {
    "$bin" --benchmark_filter="^$1\$" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true \
        --benchmark_min_time=0.1 2>/dev/null | awk '/_median/ {print $4}'
}

printf '%-12s %12s %12s %8s   %s\n' document "ours (us)" "cJSON (us)" ratio "per round"
for doc in "$@"; do
    ours=() peer=() ratios=()
    for _ in $(seq "$rounds"); do
        k=$(median_cpu "BM_KrvParse/$doc")
        c=$(median_cpu "BM_CjsonParse/$doc")
        ours+=("$k") peer+=("$c") ratios+=("$(awk -v k="$k" -v c="$c" 'BEGIN {printf "%.2f", k / c}')")
    done
    med() { printf '%s\n' "$@" | sort -g | awk '{v[NR] = $1} END {print v[int((NR + 1) / 2)]}'; }
    printf '%-12s %12s %12s %8s   %s\n' "$doc" "$(med "${ours[@]}")" "$(med "${peer[@]}")" "$(med "${ratios[@]}")" \
        "${ratios[*]}"
done
