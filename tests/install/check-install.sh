#!/bin/bash
# Installs the build tree into a scratch prefix, compiles every installed
# header on its own, builds the consumer program with find_package(velmdb)
# and with pkg-config and runs both against the test server, and checks that
# the installed example server finds the library beside it.
set -euo pipefail
build=${1:?build directory}
linkflags=${2:-}
. "$(dirname "$0")/consumers.sh"
prefix=$(mktemp -d /tmp/velm-install.XXXXXX)
trap 'rm -rf "$prefix"' EXIT
export ASAN_OPTIONS=detect_leaks=0

cmake --install "$build" --prefix "$prefix" >/dev/null
# Two at a time: this is most of the check's time.
export prefix
find "$prefix/include/velm" -name '*.h' -printf '%f\n' | xargs -P 2 -I{} sh -c '
    echo "#include <velm/{}>" | c++ -x c++ -std=c++17 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" - ||
        { echo "installed header {} does not compile on its own" >&2; exit 255; }'

for private in StatementShape.h OdbcDiagnostic.h BackendChoice.h ValueString.h PrefixMap.h; do
    [ ! -e "$prefix/include/velm/$private" ] || { echo "private header $private is installed" >&2; exit 1; }
done
# A plain install is no system installation: the service and /etc stay out.
if [ -e "$prefix/etc" ] || [ -e "$prefix/lib/systemd" ]; then
    echo "system files in a prefix install" >&2
    exit 1
fi

build_consumers "$prefix" "$prefix" "$linkflags"

# The example server is installed with the library and finds it.
{ "$prefix/bin/velm-registrar" --help 2>&1 || true; } | grep -q '^usage: velm-registrar'
