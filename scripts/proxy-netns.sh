#!/usr/bin/env bash
# voipfilter-proxy on real networks: three network namespaces, an inside one and an outside one
# joined only through the proxy's (veth pairs, no route between inside and outside), real SIP
# endpoints (SIPp, Debian sip-tester) with RTP, H.323 endpoints replaying captured calls, and
# hostile traffic.
#
# Usage: scripts/proxy-netns.sh PROXY_BINARY [check|load]
#   check  the short run of the test command: SIPp calls with RTP echo through the proxy's relays,
#          the H.323 corpus calls checked with tshark on both sides, a flood of malformed SIP and
#          H.323 during SIPp calls. Skips (exit 77) where network namespaces cannot be made.
#   load   CALL_RATE calls/s (default 50) for LOAD_SECONDS (default 60); prints calls completed
#          and failed, the proxy's CPU time and peak memory.
# Environment: CALLS (check: SIPp calls, default 30), KEEP=1 keeps the work folder.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
proxy=$(realpath "$1")
mode=${2:-check}

skip() {
    echo "SKIP: $*"
    exit 77
}
[ "$(id -u)" -eq 0 ] || skip "network namespaces need root"
for tool in ip sipp dumpcap tshark python3; do
    command -v "$tool" >/dev/null || skip "$tool is not installed (scripts/install-deps.sh test)"
done

tag=vfp$$
ns_in=${tag}i
ns_px=${tag}p
ns_out=${tag}o
work=$(mktemp -d)
pids=()
failures=0
checks=0

cleanup() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    for ns in "$ns_in" "$ns_px" "$ns_out"; do
        ip netns del "$ns" 2>/dev/null || true
    done
    if [ "${KEEP:-0}" = 1 ] || [ "$failures" -gt 0 ]; then
        echo "work folder kept: $work"
    else
        rm -rf "$work"
    fi
}
trap cleanup EXIT

ip netns add "$ns_in" 2>/dev/null || skip "ip netns add failed: network namespaces are not allowed here"
ip netns add "$ns_px"
ip netns add "$ns_out"
ip link add "${tag}a" netns "$ns_in" type veth peer name "${tag}b" netns "$ns_px"
ip link add "${tag}c" netns "$ns_px" type veth peer name "${tag}d" netns "$ns_out"
ip -n "$ns_in" addr add 10.77.1.2/24 dev "${tag}a"
ip -n "$ns_px" addr add 10.77.1.1/24 dev "${tag}b"
ip -n "$ns_px" addr add 10.77.2.1/24 dev "${tag}c"
ip -n "$ns_out" addr add 10.77.2.2/24 dev "${tag}d"
# A hostile host outside, and an inside address where what the proxy lets through of its traffic
# ends (nothing listens there).
ip -n "$ns_out" addr add 10.77.2.3/24 dev "${tag}d"
ip -n "$ns_in" addr add 10.77.1.3/24 dev "${tag}a"
for pair in "$ns_in ${tag}a" "$ns_px ${tag}b" "$ns_px ${tag}c" "$ns_out ${tag}d"; do
    set -- $pair
    ip -n "$1" link set "$2" up
    ip -n "$1" link set lo up
done
ip netns exec "$ns_px" sysctl -qw net.ipv4.ip_forward=0

check() { # check DESCRIPTION COMMAND...
    checks=$((checks + 1))
    if "${@:2}"; then
        echo "ok: $1"
    else
        echo "FAILED: $1"
        failures=$((failures + 1))
    fi
}

# The inside cannot reach the outside except through the proxy.
check "no route from inside to outside" \
    bash -c "! ip netns exec $ns_in ping -c1 -W1 10.77.2.2 >/dev/null 2>&1"

proxy_pid=
start_proxy() {
    ip netns exec "$ns_px" "$proxy" --inside-address 10.77.1.1 --outside-address 10.77.2.1 \
        --sip-peer-outside 10.77.2.2 --h323-peer-outside 10.77.2.2 --sip-peer-inside 10.77.1.3 \
        --h323-peer-inside 10.77.1.3 --gatekeeper-outside 10.77.2.2 --media-timeout 30 \
        --deny-codec telephone-event \
        --log-level "${LOG_LEVEL:-1}" "$@" 2>>"$work/proxy.log" &
    proxy_pid=$!
    pids+=("$proxy_pid")
    for _ in $(seq 50); do
        if ip netns exec "$ns_px" ss -ltn | grep -q 10.77.2.1:1720; then
            return 0
        fi
        sleep 0.1
    done
    echo "the proxy did not start:"
    cat "$work/proxy.log"
    exit 1
}

# The proxy's counters, as SIGUSR1 prints them.
counters() {
    local before
    before=$(wc -l <"$work/proxy.log")
    kill -USR1 "$proxy_pid"
    sleep 0.5
    tail -n +"$((before + 1))" "$work/proxy.log" | grep -E '^(calls|messages|results|relays):'
}

stop_proxy() {
    kill -TERM "$proxy_pid"
    local rc=0
    wait "$proxy_pid" || rc=$?
    check "the proxy stops cleanly on SIGTERM (exit $rc)" test "$rc" -eq 0
    check "no call or relay left at exit" grep -q "at exit: 0 calls, 0 relays still open" \
        "$work/proxy.log"
}

capture() { # capture NAMESPACE INTERFACE FILE FILTER
    ip netns exec "$1" dumpcap -q -i "$2" -f "$4" -w "$3" 2>/dev/null &
    pids+=($!)
    capture_pids+=($!)
}
capture_pids=()
stop_captures() {
    sleep 0.5
    for pid in "${capture_pids[@]}"; do
        kill -INT "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    capture_pids=()
}

# SIPp: the callee answers and echoes RTP (-rtp_echo), the caller plays a G.711 recording.
mkdir -p "$work/sipp"
ln -s /usr/share/sip-tester "$work/sipp/pcap"
uas_pid=
start_callee() {
    (cd "$work/sipp" && exec ip netns exec "$ns_out" sipp -sn uas -i 10.77.2.2 -p 5060 \
        -mi 10.77.2.2 -mp 6000 -rtp_echo -nostdin -max_socket 4096 >"$work/uas.out" 2>&1) &
    uas_pid=$!
    pids+=("$uas_pid")
    sleep 0.5
}
# run_calls NAME CALLS RATE: places the calls, leaves their statistics in $work/NAME.csv.
run_calls() {
    local rc=0
    (cd "$work/sipp" && ip netns exec "$ns_in" sipp -sn uac_pcap 10.77.1.1:5060 -i 10.77.1.2 \
        -p 5060 -mi 10.77.1.2 -m "$2" -r "$3" -l "$(($2 < 2000 ? $2 : 2000))" -nostdin \
        -max_socket 4096 -timeout "$(($2 / $3 + 60))" -timeout_error -trace_stat \
        -stf "$work/$1.csv" -fd 1 >"$work/$1.out" 2>&1) || rc=$?
    return "$rc"
}
# The final value of a SIPp statistics column.
stat_of() { # stat_of NAME COLUMN
    python3 - "$work/$1.csv" "$2" <<'PY'
import csv, sys
rows = list(csv.reader(open(sys.argv[1]), delimiter=';'))
print(rows[-1][rows[0].index(sys.argv[2])])
PY
}

sip_check() {
    local calls=${CALLS:-30}
    capture "$ns_in" "${tag}a" "$work/sip-in.pcapng" "udp and src host 10.77.1.1 and not port 5060"
    capture "$ns_out" "${tag}d" "$work/sip-out.pcapng" "udp and src host 10.77.2.1 and not port 5060"
    capture "$ns_out" "${tag}d" "$work/sip-signalling.pcapng" "udp port 5060"
    sleep 1
    local rc=0
    run_calls short "$calls" 10 || rc=$?
    stop_captures
    local ok failed
    ok=$(stat_of short 'SuccessfulCall(C)')
    failed=$(stat_of short 'FailedCall(C)')
    echo "SIPp short run: $calls calls at 10/s: $ok completed, $failed failed (sipp exit $rc)"
    check "every SIPp call completes through the proxy" test "$ok" -eq "$calls" -a "$failed" -eq 0
    # Each call has its own relay: count the relay ports media came from on each side.
    local inside outside
    inside=$(tshark -r "$work/sip-in.pcapng" -T fields -e udp.srcport 2>/dev/null | sort -u | wc -l)
    outside=$(tshark -r "$work/sip-out.pcapng" -T fields -e udp.srcport 2>/dev/null | sort -u | wc -l)
    echo "media: relays seen sending to the caller $inside, to the callee $outside"
    check "media of every call reaches the caller through a relay" test "$inside" -ge "$calls"
    check "media of every call reaches the callee through a relay" test "$outside" -ge "$calls"
    # The SDP the callee gets: the proxy's addresses only, and the vetoed codec gone.
    local sdp
    sdp=$(tshark -r "$work/sip-signalling.pcapng" -Y "sdp && ip.dst == 10.77.2.2" -T fields \
        -E occurrence=a -e sdp.connection_info.address -e sdp.owner.address 2>/dev/null |
        tr '\t,' '\n\n' | sed '/^$/d' | sort -u | tr '\n' ' ')
    echo "addresses in the SDP the callee receives: $sdp"
    check "the callee's SDP names only the proxy" test "$sdp" = "10.77.2.1 "
    local vetoed kept
    vetoed=$(tshark -r "$work/sip-signalling.pcapng" -Y 'ip.dst == 10.77.2.2 && sdp.media_attr contains "telephone-event"' 2>/dev/null | wc -l)
    kept=$(tshark -r "$work/sip-signalling.pcapng" -Y 'ip.dst == 10.77.2.2 && sdp.media_attr contains "PCMA"' 2>/dev/null | wc -l)
    check "the vetoed codec is removed, the others kept ($vetoed, $kept)" test "$vetoed" -eq 0 -a "$kept" -eq "$calls"
    sleep 1
    counters | tee "$work/short-counters.txt"
    check "every relay is freed when the calls end" grep -q "relays: opened [0-9]*, open 0," \
        "$work/short-counters.txt"
}

# Every address value tshark finds in the H.225 and H.245 messages a capture shows the proxy
# (address $2) sending.
h323_addresses() {
    tshark -r "$1" -Y "(h225 || h245) && ip.src == $2" -T fields -E occurrence=a -E separator=, -e h225.ipV4 \
        -e h225.h245Ip -e h245.ip4_network 2>/dev/null | tr ',\t' '\n\n' | sed '/^$/d' | sort -u
}

h323_check() {
    local data=$root/tests/data/h323 peers=$root/tools/voipfilter-proxy/tests/peers.py
    # The captured endpoints' addresses, replaced by the test network's in the replayed bytes.
    local calls=("$data/rtp-example-1.txt,10.1.3.143,10.1.6.18"
        "$data/ekiga-setup-faststart.tpkt.bin,10.0.1.122,66.135.35.44"
        "$data/synth-setup-faststart.q931.bin,10.0.0.5,192.0.2.10")
    capture "$ns_px" "${tag}b" "$work/h323-in.pcapng" "tcp"
    capture "$ns_px" "${tag}c" "$work/h323-out.pcapng" "tcp"
    sleep 1
    ip netns exec "$ns_out" python3 "$peers" h323-callee --me 10.77.2.2 --peer 10.77.1.2 \
        "${calls[@]}" >"$work/h323-callee.out" 2>&1 &
    local callee=$!
    pids+=("$callee")
    sleep 0.5
    local rc=0
    ip netns exec "$ns_in" python3 "$peers" h323-caller --me 10.77.1.2 --peer 10.77.2.2 \
        --proxy 10.77.1.1 "${calls[@]}" >"$work/h323-caller.out" 2>&1 || rc=$?
    wait "$callee" || rc=$?
    stop_captures
    cat "$work/h323-caller.out" "$work/h323-callee.out"
    check "the H.323 corpus calls play end to end through the proxy" test "$rc" -eq 0
    local count
    count=$(tshark -r "$work/h323-out.pcapng" -Y h245 2>/dev/null | wc -l)
    echo "H.245 frames on the outside: $count"
    check "the separate H.245 connection is relayed" test "$count" -ge 10
    local side net own peer bad
    for side in in out; do
        [ $side = in ] && net=10.77.1 || net=10.77.2
        own=$net.1
        peer=$net.2
        bad=$(h323_addresses "$work/h323-$side.pcapng" "$own" | grep -vx -e "$own" -e "$peer" || true)
        echo "addresses the proxy sends in H.225/H.245 on the $side:" \
            "$(h323_addresses "$work/h323-$side.pcapng" "$own" | tr '\n' ' ')"
        check "on the $side, the proxy sends no address but its own and the endpoint's" \
            test -z "$bad"
        count=$(tshark -r "$work/h323-$side.pcapng" -Y "_ws.malformed || _ws.expert.severity == error" \
            2>/dev/null | wc -l)
        check "no malformed frame on the $side ($count)" test "$count" -eq 0
    done
    # No inside address leaks to the outside anywhere in the payloads (raw bytes: 10.77.1.2).
    count=$(tshark -r "$work/h323-out.pcapng" -Y "tcp.len > 0" -T fields -e tcp.payload 2>/dev/null |
        grep -c 0a4d0102 || true)
    check "no inside address leaks to the outside ($count payloads)" test "$count" -eq 0
    counters | tee "$work/h323-counters.txt"
    check "no call was shut down" grep -q "calls shut down 0" "$work/h323-counters.txt"
    check "every relay is freed when the calls end" grep -q "relays: opened [0-9]*, open 0," \
        "$work/h323-counters.txt"
}

# An inside endpoint registers with a gatekeeper outside, is called through the address the proxy
# mapped for it, and is rejected, which withdraws the mapping.
ras_check() {
    local peers=$root/tools/voipfilter-proxy/tests/peers.py
    ip netns exec "$ns_out" python3 "$peers" ras-gatekeeper --me 10.77.2.2 --peer 10.77.1.2 \
        --proxy 10.77.2.1 --data "$root/tests/data/ras" \
        --setup "$root/tests/data/h323/synth-setup-faststart.q931.bin" >"$work/ras-gk.out" 2>&1 &
    local gatekeeper=$!
    pids+=("$gatekeeper")
    sleep 0.3
    local rc=0
    ip netns exec "$ns_in" python3 "$peers" ras-endpoint --me 10.77.1.2 --proxy 10.77.1.1 \
        --data "$root/tests/data/ras" >"$work/ras-ep.out" 2>&1 || rc=$?
    wait "$gatekeeper" || rc=$?
    cat "$work/ras-ep.out" "$work/ras-gk.out"
    check "RAS registration, a call to the mapped address, the mapping withdrawn" test "$rc" -eq 0
    counters | tee "$work/ras-counters.txt"
    check "one mapping was made" grep -q "ras mappings 1," "$work/ras-counters.txt"
}

# A SIP call with a message session: the MSRP connection goes through the proxy's TCP relay.
msrp_check() {
    local peers=$root/tools/voipfilter-proxy/tests/peers.py
    ip netns exec "$ns_out" python3 "$peers" msrp-callee --me 10.77.2.2 --proxy 10.77.2.1 \
        >"$work/msrp-callee.out" 2>&1 &
    local callee=$!
    pids+=("$callee")
    sleep 0.3
    local rc=0
    ip netns exec "$ns_in" python3 "$peers" msrp-caller --me 10.77.1.2 --proxy 10.77.1.1 \
        >"$work/msrp-caller.out" 2>&1 || rc=$?
    wait "$callee" || rc=$?
    cat "$work/msrp-caller.out" "$work/msrp-callee.out"
    check "an MSRP message session goes through the proxy's relay" test "$rc" -eq 0
    sleep 0.5
    counters | tee "$work/msrp-counters.txt"
    check "its relay is freed when the call ends" grep -q "relays: opened [0-9]*, open 0," \
        "$work/msrp-counters.txt"
}

# Hostile traffic from a host outside while SIPp places calls from the inside: the calls must all
# complete.
flood_check() {
    local calls=${CALLS:-30} data=$root/tests/data/h323 seconds=${FLOOD_SECONDS:-10} protos
    # The PROTOS c07-sip cases live in the shared corpus beside the checkout, when it is there.
    protos=${VOIPFILTER_CORPUS:-$root/../shared/corpus}/torture/protos-c07-sip/protos-c07-sip-r2-testcases.tar.gz
    [ -f "$protos" ] || { echo "(PROTOS cases not found: the flood uses the RFC 4475 messages)"; protos=; }
    ip netns exec "$ns_in" python3 "$root/tools/voipfilter-proxy/tests/peers.py" sink \
        --me 10.77.1.3 --seconds "$((seconds + 5))" >/dev/null 2>&1 &
    pids+=($!)
    sleep 0.3
    ip netns exec "$ns_out" python3 "$root/tools/voipfilter-proxy/tests/peers.py" flood \
        --me 10.77.2.3 --proxy 10.77.2.1 --seconds "$seconds" --rate "${FLOOD_RATE:-500}" \
        ${protos:+--protos "$protos"} --torture "$root/tests/data/sip/rfc4475" \
        "$data/ekiga-setup-faststart.tpkt.bin" "$data/synth-setup-faststart.q931.bin" \
        >"$work/flood.out" 2>&1 &
    local flood=$!
    pids+=("$flood")
    local rc=0
    run_calls flood "$calls" 10 || rc=$?
    wait "$flood" || true
    cat "$work/flood.out"
    local ok failed
    ok=$(stat_of flood 'SuccessfulCall(C)')
    failed=$(stat_of flood 'FailedCall(C)')
    echo "SIPp during the flood: $calls calls: $ok completed, $failed failed (sipp exit $rc)"
    check "the proxy survives the flood" kill -0 "$proxy_pid"
    check "every SIPp call completes during the flood" test "$ok" -eq "$calls" -a "$failed" -eq 0
    counters | tee "$work/flood-counters.txt"
}

case "$mode" in
check)
    start_proxy
    msrp_check
    start_callee
    sip_check
    h323_check
    ras_check
    flood_check
    stop_proxy
    ;;
load)
    LOG_LEVEL=0 start_proxy
    start_callee
    rate=${CALL_RATE:-50}
    seconds=${LOAD_SECONDS:-60}
    ticks=$(getconf CLK_TCK)
    cpu() { awk '{print $14 + $15}' "/proc/$proxy_pid/stat"; }
    cpu_before=$(cpu)
    started=$(date +%s.%N)
    rc=0
    run_calls load "$((rate * seconds))" "$rate" || rc=$?
    elapsed=$(echo "$(date +%s.%N) - $started" | bc)
    cpu_after=$(cpu)
    peak=$(awk '/VmHWM/ {print $2, $3}' "/proc/$proxy_pid/status")
    sleep 1
    counters | tee "$work/load-counters.txt"
    ok=$(stat_of load 'SuccessfulCall(C)')
    failed=$(stat_of load 'FailedCall(C)')
    echo "load: $((rate * seconds)) calls at $rate/s: $ok completed, $failed failed (sipp exit $rc)"
    echo "load: proxy CPU $(echo "scale=1; ($cpu_after - $cpu_before) / $ticks" | bc) s in" \
        "$(printf %.0f "$elapsed") s ($(echo "scale=1; 100 * ($cpu_after - $cpu_before) / $ticks / $elapsed" | bc)% of one core)," \
        "peak resident memory $peak"
    check "every call of the load run completes" test "$failed" -eq 0
    stop_proxy
    ;;
*)
    echo "unknown mode $mode" >&2
    exit 2
    ;;
esac

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
