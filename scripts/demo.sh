#!/usr/bin/env bash
# Builds zxrelay and relays samples/sample.ts through it on loopback to three clients: first at the
# speed of a live stream, then 250 times in a row at full speed. Compares every byte that the clients
# receive with what was sent.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
[[ $# -eq 0 ]] || misused

# Builds only the relay and its libraries, without optimisation: a demonstration needs none, and the build takes
# half as long.
build_relay() {
    cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-w \
        -DZX_BUILD_TESTS=OFF -DZX_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build build/demo --target zxrelay | counted
}
stage packages scripts/install-deps.sh build
stage build build_relay

relay=build/demo/tools/zxrelay/zxrelay
sample=samples/sample.ts
in_port=${ZX_DEMO_IN_PORT:-15000}
out_port=${ZX_DEMO_OUT_PORT:-18000}
clients=3
work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

# listening PORT: waits until connections to this port are accepted.
listening() {
    for _ in {1..100}; do
        (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return
        sleep 0.05
    done
    echo "zxrelay does not listen on port $1" >&2
    return 1
}

# run TITLE SENDER...: runs a relay with its clients and a source, which sends the output of SENDER.
run() {
    local title=$1; shift
    local log=$work/relay.log
    printf '\n== %s\n' "$title"
    rm -f "$work"/out.* "$log"
    "$relay" --input "tcp://127.0.0.1:$in_port" --output "127.0.0.1:$out_port" --once --stats \
        --fifo-size 256m --client-buffer 256m --log "$log" --log-level 4 &
    local relay_pid=$!
    pids=("$relay_pid")
    listening "$out_port"
    local reader_pids=()
    for ((i = 1; i <= clients; i++)); do
        cat <"/dev/tcp/127.0.0.1/$out_port" >"$work/out.$i" &
        reader_pids+=($!)
    done
    pids+=("${reader_pids[@]}")
    until [[ $(grep -c 'client .* has connected' "$log") -gt $clients ]]; do sleep 0.05; done
    local begin end
    kill -USR1 "$relay_pid"  # logs the buffers that are in use now
    begin=$(date +%s.%N)
    "$@" >"/dev/tcp/127.0.0.1/$in_port"
    wait "$relay_pid" "${reader_pids[@]}"
    end=$(date +%s.%N)
    pids=()
    "$@" >"$work/expected"
    for ((i = 1; i <= clients; i++)); do
        cmp "$work/expected" "$work/out.$i"
    done
    awk -v size="$(stat -c %s "$work/expected")" -v time="$(echo "$end $begin" | awk '{print $1 - $2}')" \
        -v clients="$clients" 'BEGIN {
            printf "%d bytes reached each of %d clients unchanged in %.2f s: %.1f MB/s in, %.1f MB/s out\n",
                size, clients, time, size / time / 1e6, clients * size / time / 1e6 }'
    printf -- '-- log of the relay\n'
    cat "$log"
    grep -E '\]\[(WARN|ERROR)\]' "$log" >>"$work/unexpected" || true
}

live() {
    local chunk
    for ((chunk = 0; chunk * 18800 < $(stat -c %s "$sample"); chunk++)); do
        dd if="$sample" bs=18800 skip="$chunk" count=1 status=none
        sleep 0.1
    done
}
repeated() { for _ in {1..250}; do cat "$sample"; done; }

run "the sample at the speed of a live stream" live
run "the sample 250 times in a row" repeated

cat <<'END'

These log lines are expected. The first client of each run is this script, which checks whether the relay
listens, and disconnects. "Memry leak" is the name of the allocator for a buffer in use. In each run, this
script asks for the list of buffers once, which shows the FIFO. At the end, the list is empty.
END
if [[ -s $work/unexpected ]]; then
    echo "These lines are unexpected:"
    cat "$work/unexpected"
fi
