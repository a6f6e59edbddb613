#!/usr/bin/env bash
# Compares the binary interface of the built libraries with the record in packaging/abi. Fails on
# every difference, including an added function.
#
#   scripts/abi.sh             builds the libraries first
#   scripts/abi.sh BUILD_DIR   uses the libraries in BUILD_DIR, which need debug information
#   scripts/abi.sh --update    updates the record after an intended change
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ $# -le 1 ]] || misused
build=${1-}
if [[ -z $build || $build == --update ]]; then
    build=build/tsan
    scripts/install-deps.sh build test
    build tsan zxcommon zxlog
fi

record() {
    abidw --headers-dir include --headers-dir zxlog/include --drop-private-types --no-corpus-path \
        --no-comp-dir-path --no-show-locs --no-architecture --no-elf-needed --no-write-default-sizes --type-id-style hash "$1" |
        python3 scripts/abi_trim.py
}

failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for library in "$build/src/libzxcommon.so" "$build/zxlog/libzxlog.so"; do
    name=$(basename "$library" .so)
    record "$library" >"$work/$name.abi"
    if [[ ${1-} == --update ]]; then
        cp "$work/$name.abi" packaging/abi/
        continue
    fi
    # abidiff reports no change if it cannot read a record.
    python3 scripts/abi_trim.py <"packaging/abi/$name.abi" >"$work/recorded.abi"
    abidiff "$work/recorded.abi" "$work/$name.abi" || failed=1
done
exit $failed
