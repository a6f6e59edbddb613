#!/bin/sh
# guides_test.sh CC BUILD_DIR SOURCE_DIR
#
# The program in a guide compiles without a warning, runs, and succeeds. Every example is shown
# once, as it is in its file. Every header has its guide in the index, and links lead to files.
set -eu
cc=$1 build=$2
cd "$3"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0
wrong() {
    echo "$*" >&2
    failed=1
}
for guide in README.md docs/guides/*.md; do
    program=$work/$(basename "$guide" .md)
    # Examples, which are named in a line, are built and run by tests of their own.
    awk '/^<!-- ex/ { shown = 1 } /^```c$/ { code = !shown; next } /^```/ { code = shown = 0 } code' "$guide" >"$program.c"
    [ -s "$program.c" ] || continue
    "$cc" -std=gnu11 -Wall -Wextra -Wpedantic -Werror -Iinclude -Izxlog/include \
        "$program.c" -o "$program" "$build/src/libzxcommon.so" "$build/zxlog/libzxlog.so" \
        -Wl,-rpath,"$build/src:$build/zxlog" && (cd "$work" && timeout 20 "$program") || wrong "$guide: its program fails"
done
pages="docs/*.md docs/guides/*.md"
for file in examples/*.c examples/*.cpp; do
    [ "$(cat $pages | grep -xc "<!-- $file -->")" = 1 ] || wrong "$file: not shown once"
done
for file in include/* zxlog/include/*; do
    grep -q "^| .*\.md) |.* ${file##*/}[, ]" docs/index.md || wrong "$file: no guide"
done
for page in *.md $pages; do
    awk -f scripts/docs_guides.awk "$page" | cmp -s - "$page" || wrong "$page: run scripts/docs.sh --guides"
    links=$(awk '/^```/ { code = !code } !code' "$page" | grep -o '](\([^):#]*\)[)#]' | sed 's/^](//; s/.$//')
    for link in $links; do
        [ -e "$(dirname "$page")/$link" ] || wrong "$page: no $link"
    done
    case $page in docs/index.md | [A-Z]*) continue ;; esac
    grep -q "](${page#docs/})" docs/index.md || wrong "$page: not in the index"
done
exit $failed
