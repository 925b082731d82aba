#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/) with clang and runs each for KRV_FUZZ_SECONDS seconds (default
# 20), two at a time, from a copy of its seed corpus, so the repository's seeds stay as they are.
# Inputs that fail are left in build-fuzz/artifacts/; each target's log is build-fuzz/<target>.log (the
# library's own printing on standard output is dropped).
# Afterwards one line per target gives its executions, coverage (cov: edges, ft: features) and corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/two-at-a-time.sh
bash scripts/deps.sh clang libclang-rt-14-dev
seconds=${KRV_FUZZ_SECONDS:-20}
dir=${KRV_FUZZ_BUILD_DIR:-build-fuzz}
CC=clang CXX=clang++ cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKRV_WERROR=ON -DKRV_BUILD_FUZZ=ON \
  -DKRV_BUILD_TESTS=OFF -DKRV_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$dir" -j "$(nproc 2>/dev/null || echo 2)"

# The seed corpus of each target: fuzz/corpus/<target>, where two older targets use shorter names.
seeds_of() {
  case $1 in
    json_parse | json_tree | json_file) echo fuzz/corpus/json ;;
    array_sa_sort) echo fuzz/corpus/array ;;
    *) echo "fuzz/corpus/$1" ;;
  esac
}

run_target() {
  local target=$1 work=$dir/corpus/$1
  rm -rf "$work"
  mkdir -p "$work" "$dir/artifacts"
  nice "$dir/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/$target-" "$work" "$(seeds_of "$target")" >/dev/null 2>"$dir/$target.log"
}

targets=()
for src in fuzz/*_fuzz.cpp; do
  name=${src#fuzz/}
  targets+=("${name%_fuzz.cpp}")
done
failed=()
two_at_a_time run_target "${targets[@]}"

for target in "${targets[@]}"; do
  log=$dir/$target.log
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  last=$(grep -aoE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+/[0-9]+[a-zA-Z]*' "$log" | tail -1 || true)
  echo "fuzz $target: ${runs:-?} runs in ${seconds} s, ${last:-no coverage line}"
done
if [ ${#failed[@]} -gt 0 ]; then
  for target in "${failed[@]}"; do
    echo "fuzz $target FAILED: see $dir/$target.log" >&2
    grep -E 'ERROR|SUMMARY|Test unit written' "$dir/$target.log" >&2 || true
  done
  exit 1
fi
echo "fuzz: ${#targets[@]} targets passed"
