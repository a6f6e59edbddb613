#!/bin/sh
# Formats every C and C++ file of the project; with --check, only says which differ and fails.
set -eu
cd "$(dirname "$0")/.."
. scripts/help.sh

case ${1-} in
'') mode=-i ;;
--check) mode='--dry-run -Werror' ;;
*)
    echo "usage: $0 [--check]" >&2
    exit 2
    ;;
esac

# CLANG_FORMAT: the program to use; the project's style is that of version 14.
# shellcheck disable=SC2086  # the mode is words
git ls-files -z -- '*.c' '*.h' '*.cpp' '*.hpp' | xargs -0 -r "${CLANG_FORMAT:-clang-format}" $mode
