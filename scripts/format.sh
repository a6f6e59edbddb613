#!/usr/bin/env bash
# Formats every C and C++ file of the project.
#
#   scripts/format.sh [--check]
#
# With --check, it changes nothing, lists the differences and fails if there are any. The environment
# variable CLANG_FORMAT names the program to use. The style needs version 14 of clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

case "$# ${1-}" in
    "0 ") mode=(-i) ;;
    "1 --check") mode=(--dry-run -Werror) ;;
    *) misused ;;
esac
find . \( -path ./build -o -path ./.git \) -prune -o -type f -regex '.*\.[ch]\(pp\)?' -print0 |
    xargs -0 -r "${CLANG_FORMAT:-clang-format}" "${mode[@]}"
