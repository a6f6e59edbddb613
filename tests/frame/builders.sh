#!/usr/bin/env bash
# builders.sh FRAME_BUILDERS: tshark shows built frames as they are in built.txt. Exit 77: skipped,
# because there is no tshark.
set -euo pipefail
source "${0%/*}/tshark.sh"
"$1" "$work/built"
IFS=$'\t' read -ra names <"${0%/*}/built.txt"
# Any text about a malformed packet becomes "malformed".
tshark_fields "$work/built" "${names[@]}" | sed 's/\[Malformed[^\t]*/malformed/' | diff "${0%/*}/built.txt" -
