#!/usr/bin/env bash
# Runs krv-demo for two seconds on the smallest log budget and checks the summary, the exit status
# and the three-file log ring it leaves behind; then checks that bad configuration files are refused
# with a message and exit status 1.
set -euo pipefail
demo=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAIL: $*"
  echo "--- krv-demo output"
  cat "$work/out" 2>/dev/null || true
  exit 1
}

# "late" never fires: it is stopped while it waits in the wheel. "logDir" does not exist yet.
cat > "$work/demo.json" <<EOF
{
  "appId": "demo-check",
  "logDir": "$work/logs/nested",
  "logSize": 5120,
  "logLevel": "info",
  "logMode": "file",
  "runSeconds": 2,
  "timers": [
    { "name": "fast", "intervalMs": 20, "mode": "periodic" },
    { "name": "status", "intervalMs": 700, "mode": "periodic", "job": "status" },
    { "name": "audit", "intervalMs": 300, "mode": "periodic", "job": "errors" },
    { "name": "once", "intervalMs": 200, "mode": "oneshot" },
    { "name": "late", "intervalMs": 3600000, "mode": "periodic" }
  ],
  "pool": { "unitSize": 120, "unitCount": 16 }
}
EOF
"$demo" "$work/demo.json" > "$work/out" 2>&1 || fail "exit status $?"

fires() {  # fires of timer $1 from the summary table
  awk -v name="$1" '$1 == name && $5 == "ms" { print $6 }' "$work/out"
}
[ "$(fires fast)" -ge 1 ] || fail "fast did not fire"
[ "$(fires status)" -ge 1 ] || fail "status did not fire"
[ "$(fires audit)" -ge 1 ] || fail "audit did not fire"
[ "$(fires once)" -eq 1 ] || fail "the one-shot timer did not fire exactly once"
[ "$(fires late)" -eq 0 ] || fail "late fired"
grep -q '^  result           clean' "$work/out" || fail "not a clean run"
grep -Eq '^  memory pool .* 0 at stop; [1-9][0-9]* taken, 0 refused$' "$work/out" || fail "pool usage"
grep -Eq '^\[  1/2 s\] ' "$work/out" || fail "no progress line"

ring=$work/logs/nested/demo-check
mapfile -t files < <(ls "$ring")
[ ${#files[@]} -eq 3 ] || fail "expected a ring of 3 files, found: ${files[*]}"
line='^\[[0-9]{4}\.[0-9]{2}\.[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{6}\]\[[0-6]\]\[0x[0-9a-f]+\]\[[^]:]+:[0-9]+\]'
for name in "${files[@]}"; do
  [[ $name =~ ^demo-check_[0-9]{4}(_[0-9]{2}){5}_[0-9]+\.log$ ]] || fail "unexpected file $name"
  size=$(stat -c %s "$ring/$name")
  # Each file rotates before it would pass a third of the budget.
  [ "$size" -gt 0 ] && [ "$size" -le $((5120 / 3)) ] || fail "$name holds $size bytes"
  grep -Eq "^    $name +$size bytes" "$work/out" || fail "$name ($size bytes) missing from the summary"
  if grep -Evq "$line" "$ring/$name"; then
    fail "malformed line in $name: $(grep -Ev "$line" "$ring/$name" | head -1)"
  fi
done
# The last line logged before shutdown reached the files: nothing queued was lost.
cat "$ring"/* | grep -q '\[main\]\[I\] > stopping after' || fail "the last line is missing from the ring"

refuse() {  # refuse <config text> <expected message part>
  printf '%s' "$1" > "$work/bad.json"
  local status=0
  "$demo" "$work/bad.json" > "$work/out" 2>&1 || status=$?
  [ $status -eq 1 ] || fail "exit status $status for: $1"
  grep -qF -- "$2" "$work/out" || fail "no \"$2\" for: $1"
}
timers='"timers": [{"name": "t", "intervalMs": 10}]'
refuse '{"runSeconds": -1}' "is not JSON the library reads"
refuse "{\"logSize\": \"big\", $timers}" "logSize: expected a whole number"
refuse "{\"logSize\": 100, $timers}" "logSize: expected a whole number from 5120"
refuse "{\"logsize\": 6000, $timers}" 'unknown key "logsize"'
refuse '{"timers": []}' "timers: expected an array"
refuse '{"timers": [{"name": "a b", "intervalMs": 10}]}' "name: letters, digits"
refuse "{\"logLevel\": \"loud\", $timers}" '"loud" is not one of'
refuse "{\"pool\": {\"unitSize\": 56}, $timers}" "pool: unitSize: expected a whole number from 57"
status=0
"$demo" "$work/missing.json" > "$work/out" 2>&1 || status=$?
[ $status -eq 1 ] && grep -q "cannot read" "$work/out" || fail "missing file gave $status"
echo "krv-demo: clean run, 3-file ring, bad configurations refused"
