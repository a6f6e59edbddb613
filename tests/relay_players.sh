#!/usr/bin/env bash
# ffmpeg -> zxrelay -> VLC, ffprobe and curl, by HTTP: VLC plays the channel that the playlist names.
# Exit 77: skipped, because a player is not installed.
set -euo pipefail
relay=$1
for program in ffmpeg ffprobe curl vlc; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done

work=$(mktemp -d)
chmod 755 "$work"
mkdir -m 777 "$work/vlc"
pids=()
# Killed players may still be writing.
trap 'kill "${pids[@]}" 2>/dev/null || true; wait || true; rm -rf "$work"' EXIT

# VLC refuses to run as root.
as_nobody=(env)
[[ $(id -u) -ne 0 ]] || as_nobody=(setpriv --reuid nobody --regid nogroup --clear-groups)

"$relay" --input tcp://127.0.0.1:25620 --output 127.0.0.1:25621 --name news --log "$work/log" &
relay_pid=$!
pids=("$relay_pid")
until grep -qs relaying "$work/log"; do kill -0 "$relay_pid"; sleep 0.05; done
ffmpeg -v error -re -f lavfi -i testsrc2=size=320x180:rate=25 -f lavfi -i sine=440 -t 300 -c:v libx264 \
    -preset ultrafast -g 12 -c:a aac -f mpegts tcp://127.0.0.1:25620 2>/dev/null &
pids+=($!)

# has_both FILE: it has pictures and sound that a player can decode.
has_both() {
    diff <(printf 'aac\nh264\n') \
        <(ffprobe -v fatal -show_entries stream=codec_name -of csv=p=0 "$1" | grep . | sort -u)
}

has_both http://127.0.0.1:25621/news

{ curl -sN --max-time 300 http://127.0.0.1:25621/news || true; } | head -c 300000 >"$work/curl.ts" # head ends curl
has_both "$work/curl.ts"

# The playlist is read, its one channel is opened, and what comes is unpacked and packed again.
HOME=$work/vlc timeout 300 "${as_nobody[@]}" vlc --intf dummy --quiet \
    --sout "#std{access=file,mux=ts,dst=$work/vlc/out.ts}" http://127.0.0.1:25621/playlist.m3u \
    >"$work/vlc.log" 2>&1 &
vlc_pid=$!
pids+=("$vlc_pid")
until [[ $(stat -c %s "$work/vlc/out.ts" 2>/dev/null || echo 0) -gt 150000 ]]; do
    kill -0 "$vlc_pid" 2>/dev/null || { cat "$work/vlc.log"; exit 1; }
    sleep 0.1
done
has_both "$work/vlc/out.ts"

kill -TERM "$relay_pid"
wait "$relay_pid"
