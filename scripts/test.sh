#!/usr/bin/env bash
# Builds and runs all tests: release, address and undefined-behaviour sanitizers, and those with
# threads under the thread sanitizer, which compares the binary interface with its record, too.
# Checks the formatting first, analyses the code and fuzzes for a moment at last. Release also makes
# the documentation, which has to be silent.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/help.sh

scripts/install-deps.sh build test docs
scripts/format.sh --check

for preset in release asan tsan; do
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -- --quiet
    ctest --preset "$preset" --parallel 2 --output-on-failure
done

scripts/analyse.sh
echo "== fuzz"
scripts/fuzz.sh 5
