# Sourced by the benchmarks that run the agent: builds what they run, starts the peer that answers from
# memory, and has the statistics of their tables.
# shellcheck shell=bash

# shellcheck source=scripts/lib/packages.sh
source scripts/lib/packages.sh
# shellcheck source=scripts/lib/peers.sh
source scripts/lib/peers.sh

export LC_ALL=C # awk's decimal point, the place of refetchd's report
unset {http,no,all}_proxy {HTTP,NO,ALL}_PROXY

programs=build/release
agent=$programs/server/refetchd/refetchd

# build_bench [PACKAGE...]: installs what the build and the benchmark need, and builds the release.
build_bench() {
    need_packages "${build_packages[@]}" libbenchmark-dev libxml2-dev "$@"
    say "Building preset 'bench'"
    cmake --preset bench >/dev/null
    cmake --build --preset bench
}

# start_peer OPTION...: starts a memory_peer, and sets "peer_port" to its port.
start_peer() {
    local _
    : >"$work/peer.port"
    "$programs/bench/memory_peer" "$@" >"$work/peer.port" &
    daemons[peer]=$!
    for _ in {1..100}; do
        [ ! -s "$work/peer.port" ] || break
        sleep 0.1
    done
    peer_port=$(cat "$work/peer.port")
    [ -n "$peer_port" ] || fail 'the peer did not start'
}

stop_peer() {
    kill "${daemons[peer]}"
    wait "${daemons[peer]}" || true
    unset 'daemons[peer]'
} 2>/dev/null # hides the message of the shell that a job was terminated

# check_loaded COUNT: fails unless the last run of the agent fetched COUNT URLs.
check_loaded() {
    local page=$work/root/pub/en_US_POSIX/reports/refetchd.html
    grep -A 1 'Total URLs loaded' "$page" | grep -q ">$1</td>" || fail "not all of $1 were fetched"
    rm "$page"
}

# Functions for awk programs. The values are in a text, with spaces between them. A quantile that lies
# between two values is interpolated.
# shellcheck disable=SC2034
statistics='
    function quantile(text, share, v, n, i, j, t, at) {
        n = split(text, v, " ")
        for (i = 2; i <= n; i++)
            for (j = i; j > 1 && v[j] + 0 < v[j - 1] + 0; j--) {
                t = v[j]; v[j] = v[j - 1]; v[j - 1] = t
            }
        at = 1 + (n - 1) * share
        i = int(at)
        return n == 0 ? "" : i == n ? v[n] : v[i] + (at - i) * (v[i + 1] - v[i])
    }
    function median(text) { return quantile(text, 0.5) }
    # "0.95 to 1.05", the quartiles.
    function spread(text, format) {
        return sprintf(format " to " format, quantile(text, 0.25), quantile(text, 0.75))
    }
    # Whether the value is within its bound, such as "<=" and 1.15; nothing if it has none.
    function met(value, sign, limit) {
        if (sign == "") return ""
        if (sign == ">=") return value >= limit ? "yes" : "no"
        if (sign == "<=") return value <= limit ? "yes" : "no"
        if (sign == "<") return value < limit ? "yes" : "no"
        return value == limit ? "yes" : "no"
    }'
