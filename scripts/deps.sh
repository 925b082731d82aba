#!/usr/bin/env bash
# Installs the build and test tools this project needs when they are missing (Debian packages).
set -euo pipefail
need=()
command -v cmake >/dev/null 2>&1 || need+=(cmake)
command -v g++ >/dev/null 2>&1 || need+=(g++)
command -v make >/dev/null 2>&1 || need+=(make)
command -v nm >/dev/null 2>&1 || need+=(binutils)
command -v pkg-config >/dev/null 2>&1 || need+=(pkg-config)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/gmock/gmock.h ] || need+=(libgmock-dev)
for pkg in "$@"; do
  dpkg -s "$pkg" >/dev/null 2>&1 || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "installing: ${need[*]}"
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
