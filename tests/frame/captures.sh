#!/usr/bin/env bash
# captures.sh FRAME_FIELDS FRAMES FIELDS [FOLDER]
#
# Decodes every frame of every capture file in FOLDER (or $ZX_CAPTURES), and compares every
# well-formed header with what tshark shows for it, field by field. Fails when fewer than FRAMES
# frames were compared down to ARP, TCP or UDP, or fewer than FIELDS fields. Exit 77: skipped, there
# is nothing to compare with.
set -euo pipefail
program=$1 frames=$2 fields=$3 folder=${4-${ZX_CAPTURES-}}
[[ -d $folder ]] || { echo "skipped: no captures, ZX_CAPTURES is '$folder'"; exit 77; }
source "${0%/*}/tshark.sh"

# All that tshark can read in one file, with frames of other link types as bytes for both readers.
find "$folder" -name '*.pcap*' -print0 | sort -z |
    xargs -0 capinfos -Trc >"$work/files" 2>"$work/errors" || sed 's/^capinfos: /not read: /' "$work/errors"
cut -f1 "$work/files" | tr '\n' '\0' | xargs -0 mergecap -a -F pcapng -w "$work/merged"
tshark -r "$work/merged" -Y frame.encap_type -w "$work/packets" 2>/dev/null
editcap -F pcap -T ether "$work/packets" "$work/frames"
# tshark shows what lies behind the snapshot length of the file's header, libpcap cuts it off.
printf '\xff\xff\x03\x00' | dd of="$work/frames" bs=1 seek=16 conv=notrunc status=none

"$program" "$work/frames" >"$work/decoded"
# shellcheck disable=SC2046  # the names are words
tshark_fields "$work/frames" frame.protocols frame.len eth.len ip.flags.mf ip.cur_rt _ws.malformed \
    _ws.expert.message $("$program") >"$work/shown"
[[ $(wc -l <"$work/shown") == $(wc -l <"$work/decoded") ]]
paste "$work/shown" "$work/decoded" |
    awk -f "${0%/*}/judge.awk" -v min_frames="$frames" -v min_fields="$fields" "$work/files" -
