#!/bin/sh
# imports_test.sh LIBRARY ZXLOG_LIBRARY
#
# The library uses only what any replacement of libzxlog would offer, too: no name outside the
# interface, and none of the settings, which belong to the program. The diagnosis looks up at run time
# what it needs beyond that, and does without: if it were imported, the library would not start with a
# libzxlog that lacks it.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
nm -D --undefined-only "$1" | awk '{ sub(/@.*/, "", $2); print $2 }' | LC_ALL=C sort >"$work/wanted"
nm -D --defined-only "$2" | awk '{ sub(/@.*/, "", $3); print $3 }' | LC_ALL=C sort >"$work/offered"
taken=$(LC_ALL=C comm -12 "$work/wanted" "$work/offered")
unknown=$(grep '^zxlog_' "$work/wanted" | LC_ALL=C comm -23 - "$work/offered")
[ -n "$taken" ]
if [ -n "$unknown" ] || echo "$taken" | grep -E '^(zxlog_api_set|zxdiag_)'; then
    echo "taken beyond the interface: $unknown" >&2
    exit 1
fi
