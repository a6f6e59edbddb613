#!/bin/sh
# exports_test.sh LIBRARY MAP HEADER...
#
# The library exports exactly what its version script lists, in the same order and under the
# script's version node. Every name is in a public header.
set -eu
library=$1 map=$2
shift 2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
node=$(sed -n 's/^\([A-Z0-9_.]*\) {$/\1/p' "$map")
sed -n "s/^ *\([A-Za-z0-9_]*\);.*/\1@@$node/p" "$map" >"$work/listed"
nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' |
    LC_ALL=C sort -t @ -k 1,1 >"$work/exported"
[ -s "$work/listed" ]
diff "$work/listed" "$work/exported"
grep -ohE '[A-Za-z0-9_]+' "$@" | LC_ALL=C sort -u >"$work/words"
missing=$(sed 's/@.*//' "$work/listed" | LC_ALL=C sort | LC_ALL=C comm -23 - "$work/words")
if [ -n "$missing" ]; then
    echo "in no public header: $missing" >&2
    exit 1
fi
