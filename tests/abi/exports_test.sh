#!/bin/sh
# exports_test.sh LIBRARY MAP HEADER...
#
# The library exports exactly what its version script lists, in the same order and under the same
# version nodes. Every name is in a public header.
set -eu
library=$1 map=$2
shift 2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
awk '/ \{$/ { node = $1 } /^ *[A-Za-z0-9_]+;/ { sub(/;.*/, "", $1); print $1 "@@" node }' "$map" >"$work/listed"
nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' |
    LC_ALL=C sort -t @ -k 3,3 -k 1,1 >"$work/exported"
[ -s "$work/listed" ]
diff "$work/listed" "$work/exported"
grep -ohE '[A-Za-z0-9_]+' "$@" | LC_ALL=C sort -u >"$work/words"
missing=$(sed 's/@.*//' "$work/listed" | LC_ALL=C sort | LC_ALL=C comm -23 - "$work/words")
if [ -n "$missing" ]; then
    echo "in no public header: $missing" >&2
    exit 1
fi
