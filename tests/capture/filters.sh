#!/usr/bin/env bash
# filters.sh ZXCAPTURE DATA
#
# For each of these filter expressions, the same frames of every capture file in DATA and in
# $ZX_CAPTURES must pass as with tcpdump, with the same times and lengths. Exit 77: skipped, because
# a program is not installed.
set -euo pipefail
capture=$1
folders=("$2" ${ZX_CAPTURES:+"$ZX_CAPTURES"})
for program in capinfos mergecap tcpdump; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source "${0%/*}/merged.sh"
merge_captures "$work" "${folders[@]}"

readarray -t expressions <<'END'
ip
ip6
arp
rarp
tcp
udp
icmp
icmp6
igmp
not ip
not (tcp or udp)
ip or arp
ip and not tcp
ip6 and udp
tcp port 80
tcp src port 80
tcp dst port 80
udp port 53
udp src port 53
port 80 or port 53
port 443 and not host 10.0.0.1
portrange 0-1023
tcp portrange 1024-65535
src portrange 5000-6000
dst portrange 1-100
host 192.168.1.1
src host 10.0.0.1
dst host 10.0.0.1
host 224.0.0.1
host ::1
net 10.0.0.0/8
net 192.168.0.0/16
src net 192.168.0.0 mask 255.255.0.0
dst net 224.0.0.0/4
ip6 net fe80::/10
ip6 src net 2001::/16
ip6 dst net ff00::/8
ip6 proto 58
ip6 protochain 6
ip6 proto 44
ip proto 1
ip proto \udp
proto 17
proto \tcp
ip multicast
ip6 multicast
ether multicast
ether broadcast
ip broadcast
ether proto 0x0800
ether proto \ip6
ether proto 0x8100
ether[0] & 1 = 1
ether host ff:ff:ff:ff:ff:ff
ether dst 01:00:5e:00:00:01
ether src host 00:00:00:00:00:00
ether[12:2] <= 1500
vlan
vlan 100
not vlan
vlan and ip
vlan and tcp port 80
vlan and vlan
vlan and arp
mpls
pppoed
pppoes
pppoes and ip
llc
stp
len > 100
len <= 64
less 100
greater 1000
len - 14 > 500
len & 1 = 1
ip[0] & 0xf != 5
ip[0] & 0xf > 5 and igmp
ip[6:2] & 0x1fff != 0
ip[6] & 0x20 != 0
ip[6:2] & 0x4000 = 0
ip[8] < 5
ip[2:2] > 576
ip[12:4] = ip[16:4]
tcp[tcpflags] & tcp-syn != 0
tcp[tcpflags] & (tcp-syn|tcp-fin) != 0
tcp[tcpflags] = tcp-ack
tcp[tcpflags] & tcp-rst != 0
tcp[13] & 8 != 0
tcp[2:2] > 1024
tcp[12] >> 4 > 5
tcp[(tcp[12] >> 4) * 4 : 4] = 0x47455420
udp[4:2] > 200
udp[8] = 0x80
udp[0:2] = udp[2:2]
icmp[icmptype] = icmp-echo
icmp[icmptype] != icmp-echo and icmp[icmptype] != icmp-echoreply
icmp6[icmp6type] = icmp6-neighborsolicit
igmp[0] = 0x16
igmp[0] = 0x22 or igmp[0] = 0x11
(tcp and port 80) or (udp and port 53) and not net 10.0.0.0/8
!(ip proto 6) && (ip || ip6)
host 10.0.0.1 or 10.0.0.2 or 192.168.1.10
ip host 127.0.0.1
greater 60 and less 70
sctp
ah or esp
atalk or ipx
syntax error here
port 99999
host
ip and arp
tcp and udp
(tcp
vlan 9999
END

# passed PROGRAM...: the frames after the header of the file, or nothing if the program refuses.
passed() {
    if "$@" 2>/dev/null >"$work/passed"; then tail -c +25 "$work/passed"; else echo refused; fi
}

# A program of another architecture may write the other byte order: then tcpdump turns it around.
written=("$work"/merged-*)
native=(cat)
order_of() { "$@" -r "${written[0]}" -w - ip 2>/dev/null | head -c 4 | od; }
[[ $(order_of tcpdump --nano) == $(order_of "$capture") ]] || native=(tcpdump --nano -r - -w -)
ours() { "$capture" -r "$1" -w - "$2" | "${native[@]}"; }

some=0 refused=0
for file in "$work"/merged-*; do
    for expression in "${expressions[@]}"; do
        passed tcpdump --nano -r "$file" -w - "$expression" >"$work/theirs"
        passed ours "$file" "$expression" >"$work/ours"
        if ! cmp -s "$work/theirs" "$work/ours"; then
            echo "${file##*/}: other frames pass: $expression"
            exit 1
        fi
        case $(head -c 7 "$work/ours" | tr -d '\0') in
            refused) refused=$((refused + 1)) ;;
            ?*) some=$((some + 1)) ;;
        esac
    done
done
echo "${#expressions[@]} expressions: $some times, some frames passed; $refused times, both refused"
((some >= 30 && refused >= 7))
