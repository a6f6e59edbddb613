#!/usr/bin/env bash
# live.sh ZXCAPTURE DATAGRAMS [SECONDS KIB]
#
# Captures what a sender in one network namespace sends to another one, over a pair of interfaces:
# with a filter of the kernel, from all interfaces, with VLAN tags, with a buffer that overflows,
# while the interface goes down, up and away, and at 1 Gbit/s for SECONDS (1). The buffer for this is
# KIB (262144, which holds everything of a second, because the machine may be busy). Exit 77:
# skipped, because namespaces are not allowed here or a program is not installed.
set -euo pipefail
capture=$1 datagrams=$2 seconds=${3-1} kib=${4-262144}
for program in ip nsenter capinfos python3 tshark; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
from=zxfrom$$ to=zxto$$
ip netns add "$from" 2>/dev/null || { echo "skipped: no network namespaces here"; exit 77; }
ip netns add "$to"
work=$(mktemp -d)
pid=
cleanup() {
    [[ -z $pid ]] || kill "$pid" 2>/dev/null || true
    ip netns del "$from"
    ip netns del "$to"
    rm -rf "$work"
}
trap cleanup EXIT
# Not ip -n, which mounts a file system: that is not possible everywhere.
inside() { nsenter --net="/run/netns/$1" "${@:2}"; }
fail() { echo "$name: $*"; tail -n 20 "$work/lines" "$work/counts"; exit 1; }

# Without IPv6, nobody but the sender sends anything.
for space in "$from" "$to"; do
    inside "$space" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6
        echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6'
    inside "$space" ip link set lo up
done
ip link add wire netns "$from" type veth peer name port netns "$to"
inside "$to" ip link set port up
inside "$from" ip link set wire up
inside "$from" ip addr add 10.99.0.1/24 dev wire
inside "$from" ip route add 239.0.0.0/8 dev wire

start() {
    name="zxcapture $*"
    : >"$work/counts"
    # Not by a function, whose process would get the signals.
    nsenter --net="/run/netns/$to" "$capture" "$@" >"$work/lines" 2>"$work/counts" &
    pid=$!
    for _ in {1..200}; do grep -qs '^capturing' "$work/counts" && return; sleep 0.05; done
    fail "does not start"
}
send() { inside "$from" "$datagrams" "$@"; }
# finish [SIGNAL [STATUS]]: what arrived before the signal is there.
finish() {
    local status=0
    [[ -z ${1-INT} ]] || kill "-${1-INT}" "$pid"
    wait "$pid" || status=$?
    pid=
    [[ $status == "${2-0}" ]] || fail "ended with $status"
}
counted() { grep -qE "^frames: $1" "$work/lines" "$work/counts" || fail "not counted: $1"; }
shown() { grep -qE -- "$1" "$work/counts" || fail "not shown: $1"; }

start -i port -q -w "$work/filtered.pcapng" udp port 1234 and dst net 239.0.0.0/8
send 239.1.1.1 4321 500 100000
send 239.1.1.1 1234 500 100000
finish
counted '500 seen, 500 passed, 679000 bytes: UDP 500$'
counted '0 dropped by the kernel, 0 by the interface$'
[[ $(capinfos "$work/filtered.pcapng") =~ precision:\ *nanoseconds ]] || fail "no nanoseconds"

# The kernel takes the outer tag off before a capture sees the frame. libpcap puts it back.
start -i port -w "$work/tagged" vlan 100 and vlan 200
send 239.1.1.1 1234 20 100000
inside "$from" python3 - <<'END'
import socket
wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW)
wire.bind(("wire", 0))
macs = bytes.fromhex("01005e010101 020000000001")
for tags in ("88a80064 810000c8", "81000064 810000c8", "88a80064", "81000065 810000c8"):
    wire.send(macs + bytes.fromhex(tags + "88b5") + bytes(46))
END
finish TERM
counted '2 seen, 2 passed, 136 bytes'
tshark -r "$work/tagged" -T fields -e ieee8021ad.id -e vlan.id 2>/dev/null | tr '\t' ' ' >"$work/tags"
[[ $(cat "$work/tags") == $'100 200\n 100,200' ]] || fail "other tags: $(cat "$work/tags")"

start -i any -e -c 1 udp
send 239.1.1.1 1234 1 1
finish ''
grep -q 'multicast interface port .* 0x0800 ' "$work/lines" || fail "no name: $(cat "$work/lines")"

# The loopback interface shows each frame once.
start -i any -w "$work/any" udp
send 239.1.1.1 1234 30 100000
inside "$to" "$datagrams" 127.0.0.1 1234 40 100000
finish
counted '70 seen, 70 passed'
[[ $(capinfos -TEr "$work/any" | cut -f2) == linux-sll2 ]] || fail "no SLL2"

# While nothing takes the frames, the smallest buffer overflows. None is lost without being counted.
start -i port -q -B 1 -w "$work/drops.pcapng"
kill -STOP "$pid"
send 239.1.1.1 1234 3000 100000
kill -CONT "$pid"
finish
seen=$(sed -n 's/^frames: \([0-9]*\) seen.*/\1/p' "$work/lines")
dropped=$(sed -n 's/^frames: \([0-9]*\) dropped.*/\1/p' "$work/lines")
((seen > 0 && dropped > 0 && seen + dropped == 3000)) || fail "$seen seen and $dropped dropped"
[[ $(capinfos -c "$work/drops.pcapng") == *" $seen" ]] || fail "not all written"
said=$(python3 -c 'import struct, sys
print(*struct.unpack("=IIIIIHHQHHQHHI", open(sys.argv[1], "rb").read()[-52:]))' "$work/drops.pcapng")
[[ $said == "5 52 0 "*" 5 8 0 7 8 $dropped 0 0 52" ]] || fail "other statistics: $said"

start -i port -q
send 239.1.1.1 1234 10 100000
inside "$to" ip link set port down
sleep 0.5
inside "$to" ip link set port up
send 239.1.1.1 1234 10 100000
finish
counted '20 seen'

count=$((95000 * seconds))
start -i port -q -B "$kib" -w "$work/fast"
send 239.1.1.1 1234 "$count" 95000
sleep 0.2
ticks=$(awk '{print $14 + $15}' "/proc/$pid/stat")
finish
counted "$count seen"
counted '0 dropped'
echo "1 Gbit/s for $seconds s: $((ticks * 100 / $(getconf CLK_TCK) / seconds)) % of a processor"

start -i port -q -w "$work/gone"
send 239.1.1.1 1234 100 100000
inside "$from" ip link del wire
finish '' 1
counted '100 seen'
shown '^zxcapture: the interface port has gone away$'
[[ $(capinfos -Tcr "$work/gone" | cut -f2) == 100 ]] || fail "not all written"
