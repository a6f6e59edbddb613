#!/usr/bin/env bash
# Measures zxrelay beside other programs that pass on a stream, in a network namespace. It needs root.
#
#   scripts/bench-relay.sh [TURNS [SECONDS]]
#
# Each turn (default 5) measures every program once in every case for SECONDS (default 5), and takes about
# six minutes. Writes the results to build/bench/results/relay.txt, and from these the section "The relay"
# of docs/performance.md and its chart.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
[[ $# -le 2 && "${1-1}${2-1}" =~ ^[0-9]+$ ]] || misused
turns=${1:-5} seconds=${2:-5}

if [[ -z ${ZX_BENCH_NAMESPACE-} ]]; then
    scripts/install-deps.sh build bench
    build bench relay_benchmarks
    ZX_BENCH_NAMESPACE=1 exec unshare --net scripts/bench-relay.sh "$@"
fi
ip link set lo up
ulimit -n 4096

results=$PWD/build/bench/results/relay.txt
mkdir -p "$(dirname "$results")"
: >"$results"
bench=build/bench/bench
work=$(mktemp -d)
chmod 755 "$work"
pids=()
stop() {
    kill -9 "${pids[@]}" 2>/dev/null || true
    wait "${pids[@]}" 2>/dev/null || true
    pids=()
}
trap 'stop; rm -rf "$work"' EXIT

# Icecast refuses to run as root, and its default limits are for radio stations.
mkdir -m 777 "$work/log"
cat >"$work/icecast.xml" <<END
<icecast>
    <limits>
        <clients>2000</clients>
        <queue-size>4194304</queue-size>
        <burst-on-connect>0</burst-on-connect>
    </limits>
    <authentication><source-password>source</source-password></authentication>
    <listen-socket><port>8000</port><bind-address>127.0.0.1</bind-address></listen-socket>
    <paths>
        <basedir>/usr/share/icecast2</basedir>
        <webroot>/usr/share/icecast2/web</webroot>
        <adminroot>/usr/share/icecast2/admin</adminroot>
        <logdir>$work/log</logdir>
    </paths>
    <security><changeowner><user>nobody</user><group>nogroup</group></changeowner></security>
</icecast>
END
icecast_source=$'PUT /stream HTTP/1.1\r\nHost: localhost\r\nContent-Type: video/mp2t\r\nAuthorization: Basic '
icecast_source+=$(printf source:source | base64)$'\r\n\r\n'

# serve NAME: becomes the program. It takes the stream on port 5000 and clients on port 8000.
serve() {
    case $1 in
        zxrelay) exec build/bench/tools/zxrelay/zxrelay --input tcp://127.0.0.1:5000 --latency 20 \
            --output 127.0.0.1:8000 --log "$work/log/zxrelay" ;;
        zxrelay-latency-0) exec build/bench/tools/zxrelay/zxrelay --input tcp://127.0.0.1:5000 --latency 0 \
            --output 127.0.0.1:8000 --log "$work/log/zxrelay" ;;
        icecast2) exec icecast2 -c "$work/icecast.xml" ;;
        gstreamer) exec gst-launch-1.0 -q tcpserversrc host=127.0.0.1 port=5000 ! \
            tcpserversink host=127.0.0.1 port=8000 ;;
        multicat) exec multicat -u -U @127.0.0.1:5000 127.0.0.1:8000 ;;
        socat) exec socat -u TCP-LISTEN:5000,reuseaddr TCP-LISTEN:8000,reuseaddr ;;
        socat-64k) exec socat -u -b 65536 TCP-LISTEN:5000,reuseaddr TCP-LISTEN:8000,reuseaddr ;;
        least_work) exec "$bench/least_work" 5000 8000 ;;
    esac
}

# measure NAME CLIENTS MBIT: adds a line to the results. MBIT 0: full speed.
measure() {
    local type=tcp port=5000 first='' path=tcp
    case $1 in
        zxrelay*) path=/stream ;;
        icecast2) port=8000 first=$icecast_source path=/stream ;;
        multicat) type=udp path=udp ;;
    esac
    serve "$1" >"$work/log/$1.out" 2>&1 &
    local server=$!
    pids=("$server")
    sleep 0.5
    "$bench/paced_source" "$type" "$port" "$3" ${first:+"$first"} &
    pids+=($!)
    sleep 0.5
    local line
    line=$("$bench/swarm" "$path" 8000 "$2" "$seconds" "$server") || line="0 0 0 0 0 0"
    stop
    echo "$1 $2 $3 $seconds $line" | tee -a "$results"
}

echo "program clients Mbit/s seconds: receiving ended lost bytes processor-ms rss-KiB"
for ((turn = 1; turn <= turns; turn++)); do
    echo "== turn $turn of $turns"
    for case in "200 8" "1000 2" "50 2" "100 2" "200 2" "400 2" "800 2"; do
        for name in zxrelay icecast2 gstreamer least_work; do measure "$name" $case; done
    done
    for name in zxrelay icecast2 gstreamer multicat socat least_work; do measure "$name" 1 2; done
    for name in zxrelay zxrelay-latency-0 gstreamer socat socat-64k; do measure "$name" 1 0; done
done
python3 scripts/bench_relay.py "$results"
