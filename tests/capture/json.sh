#!/usr/bin/env bash
# json.sh ZXCAPTURE FRAMES VALUES
#
# Compares every field of every frame of the captures in $ZX_CAPTURES with tshark's: the columns of
# --fields as texts, and the members of --json as numbers, flags and texts. Fails when a value
# differs, and when fewer than FRAMES frames or VALUES values were compared. Exit 77: skipped.
#
# A value of ours is that of the outermost header. Of tshark's values, that is the first; of the
# fields that are lists, as many as the outermost headers have. fields.py says what is not compared.
set -euo pipefail
program=$1 frames=$2 values=$3
[[ -d ${ZX_CAPTURES-} ]] || { echo "skipped: no captures, ZX_CAPTURES is '${ZX_CAPTURES-}'"; exit 77; }
for tool in tshark python3; do
    command -v "$tool" >/dev/null || { echo "skipped: no $tool"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export WIRESHARK_CONFIG_DIR=$work  # independent of the user's settings
source "${0%/*}/by_link.sh"
merge_by_link "$work" "$ZX_CAPTURES"

mapfile -t names < <("$program" --list-fields | cut -d' ' -f1)
for file in "$work"/*.pcap; do
    shown=("${names[@]/zx.flaw/frame.protocols}" ip.cur_rt tcp.flags.ace)
    tshark -Q -n -r "$file" -T fields -E header=y -E occurrence=a "${shown[@]/#/-e}" \
        --enable-heuristic rtp_udp -o ip.defragment:FALSE -o ipv6.defragment:FALSE -o ip.tso_support:TRUE \
        -o tcp.desegment_tcp_streams:FALSE -o tcp.relative_sequence_numbers:FALSE \
        >"$file.tshark" 2>"$work/errors" || { cat "$work/errors" >&2; exit 1; }
    {
        (IFS=$'\t'; echo "${names[*]}")
        "$program" --read "$file" --fields "$(IFS=,; echo "${names[*]}")" 2>"$work/errors"
    } >"$file.columns"
    "$program" --read "$file" --json >"$file.json" 2>"$work/errors"
done
python3 "${0%/*}/fields.py" "$frames" "$values" "$work"/*.pcap
