# The pieces of a SIPp bench that bench/sipp and bench/peer share (sourced).
#
# The build, the private PostgreSQL server, the provisioned subscribers, SIPp's
# scenarios, starting velm-registrar, one SIPp run at a fixed rate and the ramp.
#
# The sourcing script sets `build` (the build directory) and `work` (a
# temporary directory it removes) before calling these, and reads the
# variables they set.
# shellcheck shell=bash disable=SC2034,SC2154

bench_build() {
    scripts/install-deps
    cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF -DVELM_BUILD_BENCHMARKS=ON >/dev/null
    cmake --build "$build" -j "$(nproc)" --target "$@" >/dev/null
}

# psql on DATABASE, unaligned and quiet: bench_psql DATABASE (-c SQL | -f FILE)
bench_psql() {
    local database=$1
    shift
    "$(find /usr/lib/postgresql -maxdepth 2 -name bin | sort -V | tail -n 1)/psql" -X -q -t -A -v ON_ERROR_STOP=1 \
        -U velm -d "$database" "$@"
}

# Starts the private server (VELM_PG_PORT, default 5433) with the schema, takes
# its environment and creates velm_sipp, where statements are not logged.
bench_start_server() {
    VELM_PG_PORT=${VELM_PG_PORT:-5433} scripts/pg-test-server start "$work/server.env" schema/velm.sql >/dev/null
    set -a
    # shellcheck source=/dev/null
    . "$work/server.env"
    set +a
    export PGOPTIONS="-c log_statement=none" VELM_CONFIG=/dev/null VELM_BENCH_DATABASE=velm_sipp
    bench_psql postgres -c "CREATE DATABASE velm_sipp TEMPLATE velm_template" >/dev/null
}

bench_stop_server() {
    scripts/pg-test-server stop "$work/server.env" >/dev/null 2>&1 || true
}

# registrar_path_bench provisions userN, N = 1..10 000, when it starts; a
# short run of it is enough when its rates are not wanted.
bench_provision() {
    "$build/bench/registrar_path_bench" --benchmark_filter='^InviteRedirect/real_time/threads:1$' \
        --benchmark_min_time=0.01s >/dev/null 2>&1
}

# SIPp's users.csv and tests of the rates assume subscriber n is public address n.
bench_check_provisioned() {
    local mismatched
    mismatched=$(bench_psql velm_sipp -c "SELECT count(*) FROM public_address WHERE sip_domain = 'bench.velm.test'
        AND (csid <> public_address_id OR handle <> 'user' || public_address_id)")
    [ "$mismatched" = 0 ] || { echo "bench: subscriber n is not public address n" >&2; return 1; }
}

# Every subscriber's password, for the digest-authenticated runs.
BENCH_PASSWORD=bench-secret

# velm.conf of velm-registrar (and velmctl) for the bench database, with a
# fresh key for enciphered passwords: bench_write_config FILE [MORE_LINES].
bench_write_config() {
    [ -f "$work/crypt.key" ] || head -c 32 /dev/urandom >"$work/crypt.key"
    {
        printf '[Database]\nProxyDatabaseUser = velm\n\n[Services]\nvelm.sip.db = velm_sipp\n\n'
        printf '[Crypt]\nKeyFile = %s\n\n' "$work/crypt.key"
        printf '%s' "${2:-}"
    } >"$1"
}

# Gives every provisioned subscriber BENCH_PASSWORD, enciphered by velmctl
# once (for a throw-away subscriber) and copied.
bench_provision_passwords() {
    local config="$work/passwords.conf"
    bench_write_config "$config"
    "$build/tools/velmctl/velmctl" --config "$config" subscriber add password-source@bench.velm.test \
        --password "$BENCH_PASSWORD" >/dev/null
    bench_psql velm_sipp -c "UPDATE subscriber SET s_password = (SELECT s_password FROM subscriber
        WHERE auth_user_id = 'password-source@bench.velm.test') WHERE auth_user_id LIKE 'user%@bench.velm.test'" >/dev/null
}

# SIPp's scenarios in $work: the subscriber (and its credentials, as SIPp's
# authentication keyword, which takes no field inside) comes from users.csv,
# one per call in turn. Response time 1 runs from the first request to the
# final answer.
bench_write_scenarios() {
    {
        echo SEQUENTIAL
        for n in $(seq 10000); do
            echo "user$n;[authentication username=user$n password=$BENCH_PASSWORD];"
        done
    } >"$work/users.csv"
    local register_head='REGISTER sip:bench.velm.test SIP/2.0
      Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
      From: <sip:[field0]@bench.velm.test>;tag=[pid]SIPpTag[call_number]
      To: <sip:[field0]@bench.velm.test>
      Call-ID: [call_id]'
    local register_tail='Contact: <sip:[field0]@192.0.2.1:5060>
      Expires: 3600
      Max-Forwards: 70
      Content-Length: 0'
    cat >"$work/register.xml" <<XML
<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="register refresh">
  <send retrans="500" start_rtd="1">
    <![CDATA[
      $register_head
      CSeq: 1 REGISTER
      $register_tail

    ]]>
  </send>
  <recv response="200" rtd="1"/>
</scenario>
XML
    cat >"$work/register-auth.xml" <<XML
<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="register refresh with digest authentication">
  <send retrans="500" start_rtd="1">
    <![CDATA[
      $register_head
      CSeq: 1 REGISTER
      $register_tail

    ]]>
  </send>
  <recv response="401" auth="true"/>
  <send retrans="500">
    <![CDATA[
      $register_head
      CSeq: 2 REGISTER
      [field1]
      $register_tail

    ]]>
  </send>
  <recv response="200" rtd="1"/>
</scenario>
XML
    cat >"$work/invite.xml" <<'XML'
<?xml version="1.0" encoding="ISO-8859-1" ?>
<scenario name="invite redirected">
  <send retrans="500" start_rtd="1">
    <![CDATA[
      INVITE sip:[field0]@bench.velm.test SIP/2.0
      Via: SIP/2.0/[transport] [local_ip]:[local_port];branch=[branch]
      From: <sip:caller@bench.velm.test>;tag=[pid]SIPpTag[call_number]
      To: <sip:[field0]@bench.velm.test>
      Call-ID: [call_id]
      CSeq: 1 INVITE
      Contact: <sip:caller@[local_ip]:[local_port]>
      Max-Forwards: 70
      Content-Length: 0

    ]]>
  </send>
  <recv response="302" rtd="1"/>
  <send>
    <![CDATA[
      ACK sip:[field0]@bench.velm.test SIP/2.0
      [last_Via:]
      From: <sip:caller@bench.velm.test>;tag=[pid]SIPpTag[call_number]
      [last_To:]
      Call-ID: [call_id]
      CSeq: 1 ACK
      Max-Forwards: 70
      Content-Length: 0

    ]]>
  </send>
</scenario>
XML
}

# Starts velm-registrar: bench_start_registrar THREADS CONFIG [OPTION...];
# sets registrar_pid and registrar_port.
. scripts/start-registrar.sh
bench_start_registrar() {
    local threads=$1 config=$2
    shift 2
    start_registrar "$work/registrar.log" "$build/examples/registrar/velm-registrar" --port 0 --threads "$threads" \
        --domain bench.velm.test --config "$config" "$@"
}

# Stops what bench_start_registrar started, if anything.
bench_stop_registrar() {
    [ -n "${registrar_pid:-}" ] || return 0
    if kill -TERM "$registrar_pid" 2>/dev/null; then
        wait "$registrar_pid" 2>/dev/null || true
    fi
    registrar_pid=
}

# One SIPp run from $work: bench_sipp SCENARIO PORT RATE CALLS [SIPP OPTION...].
# Sets successful and failed (calls), elapsed (seconds, wall time) and
# sipp_status (SIPp's exit status: 0 every call succeeded, 1 some failed).
bench_sipp() {
    local scenario=$1 port=$2 rate=$3 calls=$4 start end
    shift 4
    sipp_status=0
    start=$(date +%s.%N)
    (cd "$work" && timeout $((calls * 4 / rate + 60)) sipp -sf "$scenario.xml" -inf users.csv 127.0.0.1:"$port" \
        -i 127.0.0.1 -r "$rate" -m "$calls" -l $((rate * 2 + 10)) -recv_timeout 2000 \
        -timeout $((calls * 3 / rate + 30))s -trace_stat -stf stats.csv "$@" </dev/null >/dev/null 2>&1) ||
        sipp_status=$?
    end=$(date +%s.%N)
    elapsed=$(awk -v s="$start" -v e="$end" 'BEGIN { printf "%.3f", e - s }')
    read -r successful failed < <(awk -F';' 'NR == 1 { for (i = 1; i <= NF; i++) c[$i] = i; next } { l = $0 }
        END { split(l, v, ";"); printf "%d %d\n", v[c["SuccessfulCall(C)"]], v[c["FailedCall(C)"]] }' "$work/stats.csv")
    rm -f "$work/stats.csv"
}

# True when a run of SECONDS took no longer than a fifth more (plus 1.5 s of
# start-up), so that no queue built up: bench_kept_up SECONDS.
bench_kept_up() {
    awk -v e="$elapsed" -v l="$1" 'BEGIN { exit !(e <= l * 1.2 + 1.5) }'
}

# Ramps the rate of a step from 25/s up by half until a step fails or
# 25 600/s passes: bench_ramp COMMAND [ARGUMENT...] runs COMMAND ARGUMENT...
# RATE for each step, true when it passed. Sets best (the last rate passed, 0
# when none) and rate (the first that failed, or above 25 600).
bench_ramp() {
    best=0 rate=25
    while [ "$rate" -le 25600 ] && "$@" "$rate"; do
        best=$rate
        rate=$((rate * 3 / 2))
    done
}
