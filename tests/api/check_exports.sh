#!/usr/bin/env bash
# Fails when the shared object exports anything but KRV_* functions and Hok::Log names.
set -euo pipefail
lib=$1
names=$(nm -D --defined-only "$lib" | awk '{print $3}')
[ -n "$names" ] || { echo "no exported symbols in $lib"; exit 1; }
bad=0
while IFS= read -r sym; do
  case "$sym" in
    KRV_*) continue ;;
  esac
  plain=$(printf '%s\n' "$sym" | c++filt)
  case "$plain" in
    Hok::Log::*|"typeinfo for Hok::Log::"*|"typeinfo name for Hok::Log::"*|"vtable for Hok::Log::"*) continue ;;
  esac
  echo "unexpected export: $sym ($plain)"
  bad=1
done <<< "$names"
count=$(printf '%s\n' "$names" | wc -l)
echo "$count exported symbols checked"
exit $bad
