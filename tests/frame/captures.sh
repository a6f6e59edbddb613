#!/usr/bin/env bash
# captures.sh FRAME_FIELDS FRAMES FIELDS [FOLDER]
#
# Decodes every frame of every capture file in FOLDER (or $ZX_CAPTURES). Compares every well-formed
# header with what tshark shows for it, field by field. Fails when fewer than FRAMES frames were
# compared down to ARP, TCP or UDP, or fewer than FIELDS fields. Exit 77: skipped, because there is
# nothing to compare with.
set -euo pipefail
program=$1 frames=$2 fields=$3 folder=${4-${ZX_CAPTURES-}}
[[ -d $folder ]] || { echo "skipped: no captures, ZX_CAPTURES is '$folder'"; exit 77; }
source "${0%/*}/tshark.sh"

# Puts everything that tshark can read into one file. Frames of other link types are only bytes for
# both programs.
find "$folder" -name '*.pcap*' -print0 | sort -z |
    xargs -0 capinfos -Trc >"$work/files" 2>"$work/errors" || sed 's/^capinfos: /not read: /' "$work/errors"
cut -f1 "$work/files" | tr '\n' '\0' | xargs -0 mergecap -a -F pcapng -w "$work/merged"
tshark -r "$work/merged" -Y frame.encap_type -w "$work/packets" 2>/dev/null
editcap -F pcap -T ether "$work/packets" "$work/frames"
# tshark shows bytes after the snapshot length of the file's header, which libpcap cuts off. So this
# raises the snapshot length.
printf '\xff\xff\x03\x00' | dd of="$work/frames" bs=1 seek=16 conv=notrunc status=none

names=(frame.number frame.cap_len eth.dst eth.src eth.type
    arp.hw.type arp.proto.type arp.hw.size arp.proto.size arp.opcode
    arp.src.hw_mac arp.src.proto_ipv4 arp.dst.hw_mac arp.dst.proto_ipv4
    ip.version ip.hdr_len ip.dsfield ip.len ip.id ip.frag_offset ip.ttl ip.proto ip.checksum ip.src ip.dst
    tcp.srcport tcp.dstport tcp.seq_raw tcp.ack_raw tcp.hdr_len tcp.flags.urg tcp.flags.ack
    tcp.flags.push tcp.flags.reset tcp.flags.syn tcp.flags.fin tcp.window_size_value tcp.checksum
    tcp.urgent_pointer tcp.len tcp.option_kind tcp.option_len
    udp.srcport udp.dstport udp.length udp.checksum data.len)
{
    (IFS=$'\t'; echo "${names[*]}")
    "$program" "$work/frames"
} >"$work/decoded"
tshark_fields "$work/frames" frame.protocols frame.len eth.len ip.flags.mf ip.cur_rt _ws.malformed \
    _ws.expert.message "${names[@]}" >"$work/shown"
[[ $(wc -l <"$work/shown") == $(wc -l <"$work/decoded") ]]
paste "$work/shown" "$work/decoded" |
    awk -f "${0%/*}/judge.awk" -v min_frames="$frames" -v min_fields="$fields" "$work/files" -
