#!/usr/bin/env bash
# builders.sh FRAME_BUILDERS: tshark reads built frames as built.txt says. Exit 77: skipped, there is
# no tshark.
set -euo pipefail
source "${0%/*}/tshark.sh"
"$1" "$work/built"
IFS=$'\t' read -ra names <"${0%/*}/built.txt"
# Any text stands for a malformed packet.
tshark_fields "$work/built" "${names[@]}" | sed 's/\[Malformed[^\t]*/malformed/' | diff "${0%/*}/built.txt" -
