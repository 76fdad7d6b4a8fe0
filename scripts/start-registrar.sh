# start_registrar LOG COMMAND...: the one way scripts and tests start velm-registrar (sourced).
#
# Runs COMMAND (velm-registrar and its arguments, or env ... velm-registrar)
# in the background with its output in LOG and waits up to 30 s for the line
# that names its port. Sets registrar_pid and registrar_port; false, with the
# log on standard error, when the registrar ended or never said.
# shellcheck shell=bash
start_registrar() {
    local log=$1
    shift
    # The shell opens the log in the child: create it first, or the first
    # read can run before it exists (or read a previous registrar's port).
    : >"$log"
    "$@" >"$log" 2>&1 &
    registrar_pid=$!
    registrar_port=
    for _ in $(seq 300); do
        registrar_port=$(sed -n 's/^velm-registrar listening on 127\.0\.0\.1:\([0-9]*\) .*/\1/p' "$log")
        [ -n "$registrar_port" ] && return 0
        kill -0 "$registrar_pid" 2>/dev/null || break
        sleep 0.1
    done
    cat "$log" >&2
    return 1
}
