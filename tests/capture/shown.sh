#!/usr/bin/env bash
# curl asks an HTTP server on the loopback interface of a network namespace of our own, while
# zxcapture watches. Exit 77: skipped, because namespaces are not allowed here or a program is not
# installed.
set -euo pipefail
capture=$1
for program in ip curl python3; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
space=zxcapture$$
ip netns add "$space" 2>/dev/null || { echo "skipped: no network namespaces here"; exit 77; }
work=$(mktemp -d)
pids=()
trap 'kill "${pids[@]}" 2>/dev/null || true; ip netns del "$space"; rm -rf "$work"' EXIT
inside=(nsenter --net="/run/netns/$space")
"${inside[@]}" ip link set lo up
fail() { echo "$*"; cat "$work"/lines "$work"/counts; exit 1; }

# until_true COMMAND...: waits until the command succeeds.
until_true() {
    for _ in {1..200}; do "$@" && return; sleep 0.05; done
    fail "waited in vain for: $*"
}

echo hello >"$work/file"
"${inside[@]}" python3 -m http.server 8080 --bind 127.0.0.1 --directory "$work" >/dev/null 2>&1 &
pids+=($!)
until_true "${inside[@]}" curl -s -o "$work/answer" http://127.0.0.1:8080/file

"${inside[@]}" "$capture" --interface lo --ip 127.0.0.1 --port 8080 --write "$work/pcap" \
    >"$work/lines" 2>"$work/counts" &
pids+=($!)
until_true grep -qs 'capturing from lo' "$work/counts"
"${inside[@]}" curl -s -o "$work/answer" http://127.0.0.1:8080/file
grep -q hello "$work/answer"
until_true eval '[[ $(grep -c FIN "$work/lines") -ge 2 ]]'  # lines appear while it runs
kill -INT "${pids[1]}"
wait "${pids[1]}" || fail "the capture ended with code $?"
pids=("${pids[0]}")

# Each packet of the handshake, the request and both ends must be there once.
once() { [[ $(grep -Ec "$1" "$work/lines") -eq 1 ]] || fail "not once: $1"; }
once '127\.0\.0\.1:[0-9]+ > 127\.0\.0\.1:8080 +TCP +[0-9]+ \[SYN\]$'
once '127\.0\.0\.1:8080 > 127\.0\.0\.1:[0-9]+ +TCP +[0-9]+ \[SYN ACK\]$'
once '> 127\.0\.0\.1:8080 .*\[PSH ACK\] payload [0-9]+$'
once '> 127\.0\.0\.1:8080 .*\[FIN .*ACK\]$'
once '127\.0\.0\.1:8080 > .*\[FIN .*ACK\]'
grep -q 'GET /file HTTP/1.1' "$work/pcap"
grep -q '^frames: 0 dropped by the kernel, 0 by the interface$' "$work/counts"
diff <("$capture" --read "$work/pcap" 2>/dev/null) "$work/lines"
