#!/usr/bin/env bash
# live.sh FRAME_LIVE: starts the test between two network namespaces of its own. Exit 77: skipped,
# they are not allowed here.
set -euo pipefail
ours=zxlive-ours-$$ peer=zxlive-peer-$$
cleanup() {
    ip netns del "$ours" 2>/dev/null || true
    ip netns del "$peer" 2>/dev/null || true
}
trap cleanup EXIT
if ! { ip netns add "$ours" && ip netns exec "$ours" true; } 2>/dev/null; then
    echo "skipped: network namespaces are not allowed"
    exit 77
fi
ip netns add "$peer"

for namespace in "$ours" "$peer"; do
    ip netns exec "$namespace" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6'
done
ip -n "$peer" link add bridge address 02:00:00:00:00:02 type bridge mcast_snooping 1 mcast_querier 1
ip -n "$peer" addr add 10.99.0.2/24 dev bridge
ip link add wire netns "$ours" address 02:00:00:00:00:01 type veth peer name port netns "$peer"
ip -n "$peer" link set port master bridge
ip -n "$peer" link set port type bridge_slave mcast_fast_leave on
for device in "$peer bridge" "$peer port" "$ours wire"; do
    ip -n "${device% *}" link set "${device#* }" up
done
# On a busy machine an answer may take longer than the 200 ms after which the kernel would repeat itself.
ip -n "$peer" route change 10.99.0.0/24 dev bridge src 10.99.0.2 rto_min 5s
ZX_PEER=$peer ip netns exec "$ours" "$1"
