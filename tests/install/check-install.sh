#!/bin/bash
# Installs the build tree into a scratch prefix, compiles every installed
# header on its own, builds the consumer program with find_package(velmdb)
# and with pkg-config, and runs both.
set -euo pipefail
build=${1:?build directory}
linkflags=${2:-}
source=$(cd "$(dirname "$0")" && pwd)
prefix=$(mktemp -d /tmp/velm-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT
export ASAN_OPTIONS=detect_leaks=0

cmake --install "$build" --prefix "$prefix" >/dev/null
for header in "$prefix"/include/velm/*.h; do
    name=$(basename "$header")
    echo "#include <velm/$name>" >"$prefix/alone.cpp"
    c++ -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" "$prefix/alone.cpp" ||
        { echo "installed header $name does not compile on its own" >&2; exit 1; }
done
for private in StatementShape.h OdbcDiagnostic.h BackendChoice.h ValueString.h PrefixMap.h; do
    [ ! -e "$prefix/include/velm/$private" ] || { echo "private header $private is installed" >&2; exit 1; }
done

cmake -S "$source" -B "$prefix/consumer-build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_EXE_LINKER_FLAGS="$linkflags" >/dev/null
cmake --build "$prefix/consumer-build" >/dev/null
"$prefix/consumer-build/consumer"

pc=$(dirname "$(find "$prefix" -name velmdb.pc | head -n 1)")
# shellcheck disable=SC2046
c++ -std=c++17 $linkflags -o "$prefix/consumer-pc" "$source/consumer.cpp" \
    $(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs velmdb) -Wl,-rpath,"$(PKG_CONFIG_PATH="$pc" pkg-config --variable=libdir velmdb)"
"$prefix/consumer-pc"

# The example server is installed with the library and finds it.
{ "$prefix/bin/velm-registrar" --help 2>&1 || true; } | grep -q '^usage: velm-registrar'
