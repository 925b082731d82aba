#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, then builds and runs one C and one C++ consumer
# against it twice: through the CMake package and through pkg-config.
set -euo pipefail
build=$1
src=$(cd "$(dirname "$0")" && pwd)/consumer
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null

echo "== CMake package"
cmake -S "$src" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer_c"
"$work/cmake/consumer_cpp"

echo "== pkg-config"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name hokkrv.pc)")
libdir=$(pkg-config --variable=libdir hokkrv)
cc -std=c11 -o "$work/pc_c" "$src/consumer.c" $(pkg-config --cflags --libs hokkrv)
c++ -std=c++17 -o "$work/pc_cpp" "$src/consumer.cpp" $(pkg-config --cflags --libs hokkrv)
LD_LIBRARY_PATH=$libdir "$work/pc_c"
LD_LIBRARY_PATH=$libdir "$work/pc_cpp"

# The runtime needs the SONAME link; the development files need the plain name.
soname=$(objdump -p "$libdir/libhokkrv.so" | awk '/SONAME/ {print $2}')
[ -L "$libdir/$soname" ] || { echo "missing SONAME link $soname"; exit 1; }
echo "installed $soname with headers, CMake package and pkg-config file"
