#!/usr/bin/env bash
# Runs all fuzz targets, or those that are named, for SECONDS each, with one target per processor.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
#
# The targets start from fuzz/seeds, from the inputs that earlier runs have kept in build/fuzz/corpus,
# and from the frames in tests/data and in the captures in ZX_CAPTURES. Fails and prints the path of the
# input if an input reveals a fault.
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

scripts/install-deps.sh build clang
build fuzz capture_seeds "${targets[@]/%/_fuzz}"
"$work/fuzz/capture_seeds" "$work/captured" tests/data

# Runs a target and prints its result at the end, in one piece.
run() {
    local target=$1 log=$work/$1.log corpus=$work/corpus/$1 findings=$work/findings/$1
    local seeds=("fuzz/seeds/$target")
    [[ $target == frame_* || $target == capture_dissect ]] && seeds+=("$work/captured")
    mkdir -p "$corpus" "$findings"
    if ! "$work/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=2048 -timeout=10 \
        -artifact_prefix="$findings/" -print_final_stats=1 "$corpus" "${seeds[@]}" \
        >"$log" 2>&1; then
        printf '%s\n' "$(tail -n 60 "$log")" "$target failed; the input is the newest of:" \
            "$(ls -1t "$PWD/$findings"/*)" >&2
        return 255  # xargs then starts no other targets
    fi
    printf '%s\n' "== $target" "$(grep -E 'cov: [0-9]+' "$log" | tail -n 1)" \
        "$(grep -E 'stat::(number_of_executed_units|average_exec_per_sec|peak_rss)' "$log")"
}
export -f run
printf '%s\n' "${targets[@]}" | xargs -I{} -P "$(nproc)" bash -c 'run {}'
