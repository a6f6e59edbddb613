#!/usr/bin/env bash
# builders.sh FRAME_BUILDERS: tshark reads built frames back. Exit 77: skipped, there is no tshark.
set -euo pipefail
source "${0%/*}/tshark.sh"
"$1" "$work/built" | sort >"$work/expected"
# shellcheck disable=SC2046  # the names are words
tshark_fields "$work/built" $(cut -f2 "$work/expected" | sort -u) >"$work/columns"
# Any text stands for a malformed packet.
sed "s/\[Malformed[^\t]*/1/" "$work/columns" |
    awk -F'\t' -v OFS='\t' 'NR == 1 { split($0, name); next }
                            { for (i = 1; i <= NF; ++i) print NR - 1, name[i], $i }' | sort >"$work/shown"
comm -23 "$work/expected" "$work/shown" | tee "$work/missing"
[[ -s $work/expected && ! -s $work/missing ]]
