#!/bin/sh
# guides_test.sh CC BUILD_DIR SOURCE_DIR
#
# The program in each guide compiles without a warning, runs and finds what it expects.
set -eu
cc=$1 build=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
for guide in "$source"/docs/guides/*.md; do
    program=$work/$(basename "$guide" .md)
    awk '/^```c$/ { code = 1; next } /^```$/ { code = 0 } code' "$guide" >"$program.c"
    if ! "$cc" -std=gnu11 -Wall -Wextra -Wpedantic -Werror -I"$source/include" -I"$source/zxlog/include" \
        "$program.c" -o "$program" "$build/src/libzxcommon.so" "$build/zxlog/libzxlog.so" \
        -Wl,-rpath,"$build/src:$build/zxlog" || ! timeout 20 "$program"; then
        echo "$guide: its program fails" >&2
        failed=1
    fi
done
exit $failed
