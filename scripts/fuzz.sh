#!/usr/bin/env bash
# Runs the fuzz targets, SECONDS each, one after the other: scripts/fuzz.sh SECONDS [TARGET...]. They
# start from fuzz/seeds, from the frames of tests/data and of the captures in ZX_CAPTURES, and from
# what earlier runs found worth keeping in build/fuzz/corpus. Fails with the path of an input that
# does what it should not.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ ! ${1-} =~ ^[0-9]+$ ]]; then
    echo "usage: $0 SECONDS [TARGET...]" >&2
    exit 2
fi
seconds=$1
shift

scripts/install-deps.sh build fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet
work=build/fuzz
"$work/fuzz/capture_seeds" "$work/captured" tests/data

targets=("$@")
if [[ $# -eq 0 ]]; then
    for source in fuzz/*_fuzz.cpp; do targets+=("$(basename "$source" _fuzz.cpp)"); done
fi
for target in "${targets[@]}"; do
    echo "== $target"
    seeds=("fuzz/seeds/$target")
    [[ $target == frame_* ]] && seeds+=("$work/captured")
    corpus=$work/corpus/$target
    findings=$work/findings/$target
    mkdir -p "$corpus" "$findings"
    if ! "$work/fuzz/${target}_fuzz" -max_total_time="$seconds" -max_len=2048 -timeout=10 \
        -artifact_prefix="$findings/" -print_final_stats=1 "$corpus" "${seeds[@]}" \
        >"$work/$target.log" 2>&1; then
        tail -n 60 "$work/$target.log" >&2
        echo "$target failed; the input is the newest of:" >&2
        ls -1t "$PWD/$findings"/* >&2
        exit 1
    fi
    grep -E 'cov: [0-9]+' "$work/$target.log" | tail -n 1
    grep -E 'stat::number_of_executed_units|stat::average_exec_per_sec|stat::peak_rss' "$work/$target.log"
done
