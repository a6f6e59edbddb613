#!/usr/bin/env bash
# Records the captures of this folder anew: real traffic between two network namespaces of its own.
# Needs root and Debian's iproute2, tcpdump, ethtool, socat and iputils-ping.
set -euo pipefail
cd "$(dirname "$0")"
a=zxrec-a-$$ b=zxrec-b-$$
pids=()
cleanup() {
    kill "${pids[@]}" 2>/dev/null || true
    ip netns del "$a"
    ip netns del "$b"
}
trap cleanup EXIT

ip netns add "$a"
ip netns add "$b"
ip link add va netns "$a" type veth peer name vb netns "$b"
for end in "$a va 10.98.0.1" "$b vb 10.98.0.2"; do
    read -r namespace device address <<<"$end"
    ip netns exec "$namespace" sysctl -q -w net.ipv6.conf.all.disable_ipv6=1
    ip netns exec "$namespace" ethtool -K "$device" tx off tso off gso off >/dev/null  # real checksums
    ip -n "$namespace" addr add "$address/24" dev "$device"
    ip -n "$namespace" link set "$device" up
done
in_a() { ip netns exec "$a" "$@"; }

# record NAME COMMAND...: the frames at one end while COMMAND runs.
record() {
    ip netns exec "$a" tcpdump -q -i va -U --immediate-mode -w "$1.pcap" 2>/dev/null &
    local recorder=$!
    until [[ -s $1.pcap ]]; do sleep 0.1; done
    "${@:2}"
    sleep 0.5
    kill "$recorder"
    wait "$recorder"
}

# receive ARGS...: a receiver in b, which has time to begin.
receive() {
    ip netns exec "$b" socat -u "$@" &
    pids+=($!)
    sleep 1
}

tcp() {
    receive TCP-LISTEN:8000 SYSTEM:'sleep 0.2; cat >/dev/null'
    head -c 4000 /dev/zero | in_a socat - TCP:10.98.0.2:8000
}

udp() {
    receive UDP-RECV:7000 /dev/null
    for size in 1 2 333 1316; do
        head -c "$size" /dev/zero | in_a socat -u - UDP-SENDTO:10.98.0.2:7000
    done
    echo unheard | in_a socat -u - UDP-SENDTO:10.98.0.2:7001  # answered by ICMP
}

igmp() {
    for version in 3 2 1; do
        in_a sysctl -q -w net.ipv4.conf.va.force_igmp_version=$version
        in_a timeout 1 socat -u "UDP-RECV:9000,ip-add-membership=239.98.0.$version:va" /dev/null || true
    done
}

rm -f ./*.pcap
record ping in_a ping -q -c 2 -s 40 10.98.0.2 >/dev/null  # with ARP before it
in_a ip neigh flush dev va
record fragments in_a ping -q -c 1 -s 2000 10.98.0.2 >/dev/null
record tcp tcp
record udp udp
record igmp igmp
