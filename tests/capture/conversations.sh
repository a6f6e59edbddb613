#!/usr/bin/env bash
# conversations.sh ZXCAPTURE CONNECTIONS
#
# Compares the connections of --conversations with those of tshark on the captures in $ZX_CAPTURES:
# ends, frames and bytes each way, retransmissions and resets, the handshake. Fails when one differs,
# and when fewer than CONNECTIONS were compared. Then does so on a capture of its own, in which all
# that counts was planted. Exit 77: skipped.
set -euo pipefail
judge=$(realpath "${0%/*}")/conversations.py
program=$(realpath "$1") least=$2
for tool in tshark python3; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export WIRESHARK_CONFIG_DIR=$work  # independent of the user's settings

python3 "$judge" plant "$work/planted.pcap"
"$program" --read "$work/planted.pcap" --conversations --json >"$work/planted.json" 2>"$work/errors"
python3 "$judge" check "$work/planted.json"

[[ -d ${ZX_CAPTURES-} ]] || { echo "no captures: ZX_CAPTURES is '${ZX_CAPTURES-}'"; exit 0; }
# tshark has one connection for all VLANs, and takes connections out of tunnels. In a damaged capture,
# numbers jump, and there is no telling what was sent again.
plain='frame.protocols matches "^(eth:ethertype|sll:ethertype|raw|null)(:ip|:ipv6(:ipv6.[a-z]+)*):tcp"'
cd "$ZX_CAPTURES"
while IFS= read -r -d '' file; do
    tshark -r "$file" -Y "$plain" -F nsecpcap -w "$work/plain.pcap" 2>"$work/errors"
    "$program" --read "$work/plain.pcap" --conversations --json >"$work/json" 2>"$work/errors"
    tshark -Q -n -r "$work/plain.pcap" -T fields -E occurrence=f -o ip.defragment:FALSE -o ipv6.defragment:FALSE \
        -o tcp.desegment_tcp_streams:FALSE -e tcp.stream -e ip.src -e ipv6.src -e tcp.srcport -e ip.dst -e ipv6.dst \
        -e tcp.dstport -e frame.len -e tcp.flags.reset -e tcp.analysis.retransmission -e tcp.analysis.out_of_order \
        -e tcp.analysis.zero_window >"$work/shown" 2>/dev/null
    python3 "$judge" compare "$work/json" "$work/shown" "$file"
done < <(find tcp media large ip -name '*.pcap*' -print0 | sort -z) >"$work/compared"
grep -v '^same' "$work/compared" && exit 1
awk -v least="$least" '{ sum += $2 } END { print sum " connections compared"; exit sum < least }' "$work/compared"
