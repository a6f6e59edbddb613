#!/bin/sh
# guides_test.sh CC BUILD_DIR SOURCE_DIR
#
# The program in a guide compiles without a warning, runs and finds what it expects. Every example is
# shown once, every header has its guide in the index, and links lead to files.
set -eu
cc=$1 build=$2 source=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
wrong() {
    echo "$*" >&2
    failed=1
}
for guide in "$source"/docs/guides/*.md; do
    program=$work/$(basename "$guide" .md)
    awk '/^```c$/ { code = 1; next } /^```$/ { code = 0 } code' "$guide" >"$program.c"
    [ -s "$program.c" ] || continue
    "$cc" -std=gnu11 -Wall -Wextra -Wpedantic -Werror -I"$source/include" -I"$source/zxlog/include" \
        "$program.c" -o "$program" "$build/src/libzxcommon.so" "$build/zxlog/libzxlog.so" \
        -Wl,-rpath,"$build/src:$build/zxlog" && timeout 20 "$program" || wrong "$guide: its program fails"
done
pages="$source/docs/*.md $source/docs/guides/*.md"
for file in "$source"/examples/*.c "$source"/examples/*.cpp; do
    [ "$(cat $pages | grep -xc "@include ${file##*/}")" = 1 ] || wrong "$file: not shown once"
done
for file in "$source"/include/* "$source"/zxlog/include/*; do
    grep -q "^| .*\.md) |.* ${file##*/}[, ]" "$source/docs/index.md" || wrong "$file: no guide"
done
for page in $pages; do
    for link in $(grep -o '](\([^):#]*\)' "$page" | cut -c3-); do
        [ -e "${page%/*}/$link" ] || wrong "$page: no $link"
    done
    [ "${page##*/}" = index.md ] || grep -q "](${page#"$source"/docs/})" "$source/docs/index.md" ||
        wrong "$page: not in the index"
done
exit $failed
