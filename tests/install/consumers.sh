# Sourced by the install checks: builds the consumer program against the
# velmdb installed under a prefix, with find_package(velmdb) and with
# pkg-config, and runs both against the test server (VELM_TEST_ENV), reached
# through a database location that names its socket directory.
#   build_consumers PREFIX WORKDIR LINKFLAGS
# shellcheck shell=bash
build_consumers() {
    local prefix=$1 work=$2 linkflags=$3 source pc
    source=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
    # shellcheck disable=SC1090
    . "${VELM_TEST_ENV:?the test server fixture has not run}"
    # The socket directory as the host, its slashes escaped.
    local location="postgresql://${PGHOST//\//%2F}:$PGPORT/postgres"

    cmake -S "$source" -B "$work/consumer-build" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_EXE_LINKER_FLAGS="$linkflags" >/dev/null
    cmake --build "$work/consumer-build" >/dev/null
    pc=$(dirname "$(find "$prefix" -name velmdb.pc | head -n 1)")
    # shellcheck disable=SC2046,SC2086
    c++ -std=c++17 $linkflags -o "$work/consumer-pc" "$source/consumer.cpp" \
        $(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs velmdb) \
        -Wl,-rpath,"$(PKG_CONFIG_PATH="$pc" pkg-config --variable=libdir velmdb)"
    # Neither PGHOST nor PGPORT: the location alone must lead to the server.
    for consumer in "$work/consumer-build/consumer" "$work/consumer-pc"; do
        [ "$(env -u PGHOST -u PGPORT "$consumer" "$location" velm)" = reached ] ||
            { echo "$consumer did not reach the server at $location" >&2; return 1; }
    done
}
