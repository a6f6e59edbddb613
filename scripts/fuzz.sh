#!/usr/bin/env bash
# Runs the fuzz targets, SECONDS each, one on each processor at a time:
#
#   scripts/fuzz.sh SECONDS [TARGET...]
#
# They start from fuzz/seeds, from the frames of tests/data and of the captures in ZX_CAPTURES, and from
# what earlier runs found worth keeping in build/fuzz/corpus. Fails with the path of an input that does
# what it should not.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ ${1-} =~ ^[0-9]+$ ]] || misused
export seconds=$1 work=build/fuzz
shift

targets=("$@")
if [[ $# -eq 0 ]]; then
    for source in fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" _fuzz.cpp)"); done
fi

scripts/install-deps.sh build fuzz
build fuzz capture_seeds "${targets[@]/%/_fuzz}"
"$work/fuzz/capture_seeds" "$work/captured" tests/data

# Says how it went at the end, in one piece.
run() {
    local target=$1 log=$work/$1.log corpus=$work/corpus/$1 findings=$work/findings/$1
    local seeds=("fuzz/seeds/$target")
    [[ $target == frame_* ]] && seeds+=("$work/captured")
    mkdir -p "$corpus" "$findings"
    if ! "$work/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=2048 -timeout=10 \
        -artifact_prefix="$findings/" -print_final_stats=1 "$corpus" "${seeds[@]}" \
        >"$log" 2>&1; then
        printf '%s\n' "$(tail -n 60 "$log")" "$target failed; the input is the newest of:" \
            "$(ls -1t "$PWD/$findings"/*)" >&2
        return 255  # xargs starts no others
    fi
    printf '%s\n' "== $target" "$(grep -E 'cov: [0-9]+' "$log" | tail -n 1)" \
        "$(grep -E 'stat::(number_of_executed_units|average_exec_per_sec|peak_rss)' "$log")"
}
export -f run
printf '%s\n' "${targets[@]}" | xargs -I{} -P "$(nproc)" bash -c 'run {}'
