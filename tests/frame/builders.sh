#!/usr/bin/env bash
# builders.sh FRAME_BUILDERS: tshark reads built frames back. Exit 77: skipped, there is no tshark.
set -euo pipefail
source "${0%/*}/tshark.sh"
"$1" "$work/built" >"$work/expected"
# shellcheck disable=SC2046  # the names are words
tshark_fields "$work/built" $(head -1 "$work/expected") >"$work/shown"
# Any text stands for a malformed packet.
diff "$work/expected" <(sed "s/\[Malformed[^\t]*/1/" "$work/shown")
[[ $(wc -l <"$work/shown") -gt 1 ]]
