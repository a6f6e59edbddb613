#!/usr/bin/env bash
# Compares the binary interface of the built libraries with the record of their architecture in
# packaging/abi. Fails on every difference, including an added function.
#
#   scripts/abi.sh [--update] [BUILD_DIR]
#
# BUILD_DIR: where the libraries are, with debug information, such as build/arm64. Without it, they are built
# first, for this machine.
# --update: updates the record after an intended change.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

is_update=
if [[ ${1-} == --update ]]; then
    is_update=yes
    shift
fi
[[ $# -le 1 ]] || misused
build=${1-build/tsan}
if [[ $# -eq 0 ]]; then
    scripts/install-deps.sh build test
    build tsan zxcommon zxlog
fi

record() {
    abidw --headers-dir include --headers-dir zxlog/include --drop-private-types --no-corpus-path \
        --no-comp-dir-path --no-show-locs --no-architecture --no-elf-needed --no-write-default-sizes --type-id-style hash "$1" |
        python3 scripts/abi_trim.py
}

[[ -e $build/src/libzxcommon.so ]] || misused
machine=$(readelf -h "$build/src/libzxcommon.so" | sed -n 's/^ *Machine: *//p')
case $machine in
    AArch64) recorded=packaging/abi/arm64 ;;
    *X86-64) recorded=packaging/abi/amd64 ;;
    *) echo "$0: there is no record for $machine" >&2; exit 1 ;;
esac
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for library in "$build/src/libzxcommon.so" "$build/zxlog/libzxlog.so"; do
    name=$(basename "$library" .so)
    record "$library" >"$work/$name.abi"
    if [[ -n $is_update ]]; then
        mkdir -p "$recorded"
        cp "$work/$name.abi" "$recorded/"
        continue
    fi
    # abidiff reports no change if it cannot read a record.
    python3 scripts/abi_trim.py <"$recorded/$name.abi" >"$work/recorded.abi"
    abidiff "$work/recorded.abi" "$work/$name.abi" || failed=1
done
exit $failed
