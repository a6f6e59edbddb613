#!/usr/bin/env bash
# Builds and tests the project. Installs missing packages first.
#
#   scripts/test.sh          checks the formatting and runs the whole suite in release; takes minutes
#   scripts/test.sh --rest   runs the suite under the address and undefined-behaviour sanitizers, the
#                            tests with threads under the thread sanitizer, the check of the binary
#                            interface, the static analysis, the documentation build, every fuzz
#                            target for five seconds, and the tests of the libraries for arm64
#   scripts/test.sh --all    runs both; every change must pass this
#   scripts/test.sh --arch ARCH
#                            builds for another architecture, arm64 or s390x, and runs the suite under
#                            qemu, without the tests in tests/emulated.txt
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
    stage packages scripts/install-deps.sh build test clang analyse docs cross
    for preset in asan tsan; do
        stage "build $preset" build $preset
        stage "test $preset" run_tests $preset
    done
    stage analysis scripts/analyse.sh
    stage documentation scripts/docs.sh
    stage fuzzing scripts/fuzz.sh 5
    if need_emulation arm64; then
        emulated arm64 OFF
    else
        echo "-- arm64: left out"
    fi
}

# run_emulated ARCH: runs the tests, except those that qemu cannot run.
run_emulated() {
    local left_out
    left_out=$(sed -En "s/^    (\($1\) )?([^(])/\2/p" tests/emulated.txt | paste -sd'|')
    ctest --preset "$1" --parallel $((2 * $(nproc))) --no-tests=error --output-on-failure \
        --exclude-regex "^($left_out)\$" | counted
}

build_emulated() {
    cmake --preset "$1" -DZX_BUILD_TOOLS="$2" >/dev/null
    cmake --build --preset "$1" | counted
}

# emulated ARCH ON|OFF: builds and tests for another architecture, with or without the programs in tools/.
emulated() {
    stage "headers and libraries for $1" scripts/sysroot.sh "$1"
    stage "build $1" build_emulated "$1" "$2"
    stage "test $1" run_emulated "$1"
}

case "$# ${1-}" in
    "0 ") suite ;;
    "1 --rest") rest ;;
    "1 --all") suite; rest ;;
    "2 --arch")
        [[ $2 == arm64 || $2 == s390x ]] || misused
        stage packages scripts/install-deps.sh build test cross
        need_emulation "$2"
        emulated "$2" ON ;;
    *) misused ;;
esac
echo "all passed in $SECONDS s"
