# Sourced by scripts/fuzz.sh and scripts/memcheck.sh: two_at_a_time FUNCTION ITEM... runs
# FUNCTION ITEM for every item, two at a time (the machines we run on have two cores), and appends
# to the array `failed` the items whose run failed. Each pair is waited for before the next starts.
two_at_a_time() {
  local fn=$1 item i
  shift
  local pids=() names=()
  for item in "$@"; do
    "$fn" "$item" &
    pids+=($!)
    names+=("$item")
    if [ ${#pids[@]} -eq 2 ] || [ "$item" = "${!#}" ]; then
      for i in "${!pids[@]}"; do
        wait "${pids[$i]}" || failed+=("${names[$i]}")
      done
      pids=()
      names=()
    fi
  done
}
