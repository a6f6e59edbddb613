#!/usr/bin/env bash
# Counts the instructions that a processor of another architecture executes for a byte: with the portable
# code, and with the code for that processor. qemu counts. Prints the table for docs/performance.md.
#
#   scripts/bench-instructions.sh ARCH
#
# ARCH: arm64.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
[[ $# -eq 1 && $1 == arm64 ]] || misused
arch=$1

scripts/install-deps.sh build cross >&2
scripts/sysroot.sh "$arch" >&2
cmake --preset "$arch" -DZX_BUILD_BENCH=ON >/dev/null
build "$arch" instructions >&2
plugin=build/$arch/bench/count_instructions.so
cc -Wall -Wextra -Werror -O2 -fPIC -shared -o "$plugin" bench/count_instructions.c

# executed CPU OPERATION SIZE: the instructions of one turn, from the difference of two runs.
executed() {
    local cpu=$1 turns=10 counts=() times
    for times in $turns $((2 * turns)); do
        counts+=("$(ZX_CPU=$cpu timeout 60 "qemu-$(processor_of "$arch")" -L "build/sysroot/$arch" \
            -plugin "$plugin" "build/$arch/bench/instructions" "$2" "$3" "$times" 2>&1)")
    done
    echo $(((counts[1] - counts[0]) / turns))
}

echo '| operation | bytes | portable | accelerated | portable : accelerated |'
echo '|---|---|---|---|---|'
operations=$("qemu-$(processor_of "$arch")" -L "build/sysroot/$arch" "build/$arch/bench/instructions")
for operation in $operations; do
    for size in 1316 4096; do
        echo "$operation $size $(executed portable "$operation" "$size") $(executed '' "$operation" "$size")"
    done
done | awk '{ printf "| %s | %d | %.2f | %.2f | %.1f |\n", $1, $2, $3 / $2, $4 / $2, $3 / $4 }'
