#!/usr/bin/env bash
# ffmpeg -> zxrelay -> ffprobe and ffmpeg: a real encoder and real players at both ends, over TCP,
# multicast and RTP. Exit 77: skipped, because ffmpeg is not installed.
set -euo pipefail
relay=$1
command -v ffmpeg >/dev/null && command -v ffprobe >/dev/null || { echo "skipped: no ffmpeg"; exit 77; }

work=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; rm -rf "$work"' EXIT

check() {
    local name=$1 input=$2 target=$3 out_port=$4 format=mpegts
    shift 4
    [[ $target != rtp:* ]] || format=rtp_mpegts
    "$relay" --input "$input" --output "127.0.0.1:$out_port" --log "$work/$name.log" "$@" &
    local relay_pid=$!
    pids=("$relay_pid")
    until grep -qs relaying "$work/$name.log"; do kill -0 "$relay_pid"; sleep 0.05; done

    timeout 30 ffmpeg -v error -y -i "tcp://127.0.0.1:$out_port?timeout=20000000" -t 2 -c copy \
        -f mpegts "$work/$name.ts" &
    local player_pid=$!
    timeout 30 ffmpeg -v error -re -f lavfi -i testsrc2=size=320x180:rate=25 -f lavfi -i sine=440 \
        -t 6 -c:v libx264 -preset ultrafast -g 12 -c:a aac -f "$format" "$target" 2>/dev/null &
    local encoder_pid=$!
    pids+=("$player_pid" "$encoder_pid")
    wait "$player_pid"

    diff <(printf 'aac\nh264\n') \
        <(ffprobe -v error -show_entries stream=codec_name -of csv=p=0 "$work/$name.ts" | grep . | sort -u)
    # Every picture decodes: nothing was lost or torn on the way.
    ffmpeg -v error -xerror -i "$work/$name.ts" -f null - 2>"$work/errors"
    [[ ! -s $work/errors ]] || { cat "$work/errors"; return 1; }
    kill "$encoder_pid" 2>/dev/null || true
    wait "$encoder_pid" 2>/dev/null || true
    kill -TERM "$relay_pid"
    wait "$relay_pid"
    pids=()
    if grep 'FIFO is full' "$work/$name.log"; then
        return 1
    fi
}

check tcp "tcp://127.0.0.1:25600" "tcp://127.0.0.1:25600" 25601
check multicast "udp://239.255.19.47:25602" \
    "udp://239.255.19.47:25602?pkt_size=1316&localaddr=127.0.0.1" 25603 --interface lo
check rtp "rtp://127.0.0.1:25604" "rtp://127.0.0.1:25604" 25606
