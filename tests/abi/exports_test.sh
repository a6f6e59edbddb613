#!/bin/sh
# exports_test.sh LIBRARY MAP HEADER...
#
# The library exports exactly what its version script lists, under the script's version node, and
# every name stands in a public header.
set -eu
library=$1 map=$2
shift 2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
node=$(sed -n 's/^\([A-Z0-9_.]*\) {$/\1/p' "$map")
sed -n 's/^ *\([A-Za-z0-9_]*\);.*/\1/p' "$map" >"$work/listed"
nm -D --defined-only "$library" | awk -v node="@@$node" '
    $2 == "A" { next }  # the node itself
    sub(node "$", "", $3) { print $3; next }
    { print $3 " is not of " node > "/dev/stderr"; bad = 1 }
    END { exit bad }' >"$work/exported"

failed=0
LC_ALL=C sort -u -c "$work/listed" || failed=1
LC_ALL=C sort "$work/listed" >"$work/sorted"
LC_ALL=C sort "$work/exported" | diff "$work/sorted" - || failed=1
while read -r name; do
    if ! grep -qw -- "$name" "$@"; then
        echo "$name stands in no public header" >&2
        failed=1
    fi
done <"$work/listed"
[ -s "$work/listed" ] || failed=1
exit $failed
