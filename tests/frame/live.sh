#!/usr/bin/env bash
# live.sh FRAME_LIVE: runs the test between two network namespaces of its own. Exit 77: skipped,
# because they are not allowed here.
set -euo pipefail
# Not ip -n, which mounts a file system: that is not possible everywhere.
inside() { nsenter --net="/run/netns/$1" "${@:2}"; }
ours=zxlive-ours-$$ peer=zxlive-peer-$$
cleanup() {
    ip netns del "$ours" 2>/dev/null || true
    ip netns del "$peer" 2>/dev/null || true
}
trap cleanup EXIT
ip netns add "$ours" 2>/dev/null || { echo "skipped: no network namespaces here"; exit 77; }
ip netns add "$peer"

for namespace in "$ours" "$peer"; do
    inside "$namespace" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6'
done
ip link add wire netns "$ours" address 02:00:00:00:00:01 type veth \
    peer name port netns "$peer" address 02:00:00:00:00:02
inside "$peer" ip addr add 10.99.0.2/24 dev port
inside "$peer" ip link set port up
inside "$ours" ip link set wire up
# On a busy machine an answer may take longer than 200 ms, after which the kernel would send again.
inside "$peer" ip route change 10.99.0.0/24 dev port src 10.99.0.2 rto_min 5s
ZX_PEER=$peer inside "$ours" "$1"
