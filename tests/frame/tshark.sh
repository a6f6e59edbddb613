# shellcheck shell=bash
# For sourcing: Debian's tshark, independent of the user's settings.
command -v tshark >/dev/null || { echo "skipped: no tshark"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Switches off the protocols inside TCP and UDP. They cost time, and errors in them say nothing
# about the headers.
export WIRESHARK_CONFIG_DIR=$work
tshark -G protocols 2>/dev/null | awk -F'\t' \
    '$3 !~ /^(frame|eth|ethertype|arp|ip|igmp|tcp|tcp\..*|mptcp|udp|data|_ws\..*)$/ { print $3 }' \
    >"$work/disabled_protos"

# tshark_fields FILE FIELD...: the fields of every frame, and their names in the first line.
tshark_fields() {
    local file=$1
    shift
    tshark -Q -n -r "$file" -T fields -E header=y -E occurrence=a "${@/#/-e}" \
        -o ip.defragment:FALSE -o ip.tso_support:FALSE -o ip.check_checksum:TRUE \
        -o tcp.analyze_sequence_numbers:FALSE -o tcp.relative_sequence_numbers:FALSE \
        -o tcp.desegment_tcp_streams:FALSE -o tcp.check_checksum:TRUE -o udp.check_checksum:TRUE \
        2>"$work/tshark.errors" || { cat "$work/tshark.errors" >&2; return 1; }
}
