#!/bin/sh
# headers_test.sh HEADER|PROGRAM...
#
# Every public header can be included alone, and twice, in each language version that callers may
# use and with each compiler that is installed. A PROGRAM, .cpp, uses the templates.
set -eu
root=$(dirname "$0")/../..
flags="-fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wundef -Werror -I$root/include -I$root/zxlog/include"
checked=0 failed=0
for compiler in gcc clang; do
    if ! command -v $compiler >/dev/null; then
        echo "$compiler is not installed: skipped"
        continue
    fi
    for header in "$@"; do
        case $header in
        *pp) versions="c++20" ;;
        *) versions="c11 c17 c++17 c++20" ;;
        esac
        for version in $versions; do
            case $version in
            c++*) language=c++ more= ;;
            *) language=c more=-Wstrict-prototypes ;;
            esac
            case $header in
            *.cpp) input=$header ;;
            *) input="-include $header -include $header -x $language /dev/null" ;;
            esac
            # shellcheck disable=SC2086  # these are words
            if ! $compiler $flags $more -std=$version $input; then
                echo "$header: $compiler -std=$version" >&2
                failed=1
            fi
            checked=$((checked + 1))
        done
    done
done
echo "$checked checks"
[ $checked -gt 0 ] || exit 77
exit $failed
