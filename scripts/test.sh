#!/usr/bin/env bash
# Builds and tests the project. Installs missing packages first.
#
#   scripts/test.sh          checks the formatting and runs the whole suite in release; takes minutes
#   scripts/test.sh --rest   runs the suite under the address and undefined-behaviour sanitizers, the
#                            tests with threads under the thread sanitizer, the check of the binary
#                            interface, the static analysis, the documentation build, and every fuzz
#                            target for five seconds
#   scripts/test.sh --all    runs both; every change must pass this
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
    stage packages scripts/install-deps.sh build test clang analyse docs
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
