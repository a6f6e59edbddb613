#!/usr/bin/env bash
# Shows for each file which lines and branches of the libraries the tests reach. Fails below 95 % of the
# lines or 85 % of the branches.
#
#   scripts/coverage.sh [OPTION...]
#
# The options are passed to gcovr, for example --html-details build/coverage/report.html.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

scripts/install-deps.sh build test coverage
umask 0 # tests that change to another user must be able to write their counts
build coverage
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel 2 --quiet

# Leave out the branches inside the logging macros: whether the line is wanted, and whether it names its place.
# Counts of processes that end in the midst of a call may contradict each other: gcov shows -1 for such a
# branch, which gcovr passes over.
options=(--gcov-ignore-parse-errors --filter src/ --filter zxlog/src/ --filter shared/
    --exclude-throw-branches --exclude-unreachable-branches
    --exclude-branches-by-pattern '.*ZX_(LOG|DUMP).*')
counts=build/coverage/counts.json
gcovr --root . "${options[@]}" --json "$counts" build/coverage
gcovr --root . --add-tracefile "$counts" --txt --branches
gcovr --root . --add-tracefile "$counts" --txt --print-summary --fail-under-line 95 --fail-under-branch 85 "$@"
