#!/usr/bin/env bash
# builders.sh FRAME_BUILD_FUZZ SEEDS: tshark reads the frames that the fuzz target builds from these
# seeds as built.txt says. Exit 77: skipped, there is no tshark.
set -euo pipefail
source "${0%/*}/tshark.sh"
ZX_FRAMES=$work/built "$1" "$2"/sent_*
IFS=$'\t' read -ra names <"${0%/*}/built.txt"
# Any text about a malformed packet becomes "malformed".
tshark_fields "$work/built" "${names[@]}" | sed 's/\[Malformed[^\t]*/malformed/' | diff "${0%/*}/built.txt" -
