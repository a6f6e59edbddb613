#!/usr/bin/env bash
# Builds and tests the project; what is missing is installed first.
#
#   scripts/test.sh          formatting, and the whole suite in release: minutes
#   scripts/test.sh --rest   the rest of the gate: the suite under the address and undefined-behaviour
#                            sanitizers, what has threads under the thread sanitizer, with the record
#                            of the binary interface, static analysis, documentation, and a moment of
#                            fuzzing
#   scripts/test.sh --all    both, the whole gate: what every change must pass
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

suite() {
    stage packages scripts/install-deps.sh build test
    stage format scripts/format.sh --check
    stage "build release" build release
    stage "test release" run_tests release
}

rest() {
    stage packages scripts/install-deps.sh build test analyse docs fuzz
    for preset in asan tsan; do
        stage "build $preset" build $preset
        stage "test $preset" run_tests $preset
    done
    stage analysis scripts/analyse.sh
    stage documentation scripts/docs.sh
    stage fuzzing scripts/fuzz.sh 5
}

case "$# ${1-}" in
    "0 ") suite ;;
    "1 --rest") rest ;;
    "1 --all") suite; rest ;;
    *) misused ;;
esac
echo "all passed in $SECONDS s"
