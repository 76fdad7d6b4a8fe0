#!/bin/bash
# Installs the build tree into a scratch prefix, builds the consumer program
# with find_package(velmdb) and runs it.
set -euo pipefail
build=${1:?build directory}
linkflags=${2:-}
source=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d /tmp/velm-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT

cmake --install "$build" --prefix "$prefix" >/dev/null
cmake -S "$source" -B "$prefix/consumer-build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_EXE_LINKER_FLAGS="$linkflags" >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
test -f "$prefix/lib/pkgconfig/velmdb.pc" || test -f "$prefix"/lib/*/pkgconfig/velmdb.pc
LD_LIBRARY_PATH="$prefix/lib:$(dirname "$(ls "$prefix"/lib*/libvelmdb.so* "$prefix"/lib/*/libvelmdb.so* 2>/dev/null | head -n 1)")" \
    ASAN_OPTIONS=detect_leaks=0 "$prefix/consumer-build/consumer"
# The example server is installed with the library and finds it.
{ ASAN_OPTIONS=detect_leaks=0 "$prefix/bin/velm-registrar" --help 2>&1 || true; } | grep -q '^usage: velm-registrar'
