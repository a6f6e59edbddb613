#!/usr/bin/env bash
# Says which lines and branches of the libraries the tests reach, by file, and fails below 95 % of the
# lines or 85 % of the branches:
#
#   scripts/coverage.sh [OPTION...]
#
# The options go to gcovr, such as --html-details build/coverage/report.html.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

scripts/install-deps.sh build test coverage
umask 0 # tests that give up their user write counts, too
build coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel 2 --quiet

# The branches of a log line are those of the macro: who listens, and with or without the place.
options=(--filter src/ --filter zxlog/src/ --filter zxlog/internal/
    --exclude-throw-branches --exclude-unreachable-branches
    --exclude-branches-by-pattern '.*ZX_(LOG|DUMP).*')
counts=build/coverage/counts.json
gcovr --root . "${options[@]}" --json "$counts" build/coverage
gcovr --root . --add-tracefile "$counts" --txt --branches
gcovr --root . --add-tracefile "$counts" --txt --print-summary --fail-under-line 95 --fail-under-branch 85 "$@"
