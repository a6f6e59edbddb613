#!/usr/bin/env bash
# Builds the benchmarks, and runs them together with their peers (other libraries with the same work).
#
#   scripts/bench.sh zxfifo [OPTION...]  runs one program with these options of Google Benchmark;
#                                        writes no files
#   scripts/bench.sh [OPTION...]         runs all programs, which takes about eight minutes on an idle
#                                        machine; writes the results to build/bench/results/, and from
#                                        these the tables in docs/performance.md and the charts in
#                                        docs/performance/
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

scripts/install-deps.sh build bench
build bench benchmarks

programs=build/bench/bench
if [[ $# -gt 0 && $1 != -* ]]; then
    exec "$programs/$1_bench" "${@:2}"
fi

results=build/bench/results
rm -rf "$results"
mkdir -p "$results"

# run RESULT PROGRAM [OPTION...]: runs a program and stores its results.
run() {
    echo "== $1"
    "$programs/$2_bench" --benchmark_repetitions=7 --benchmark_min_time=0.1 \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
        --benchmark_out="$results/$1.json" --benchmark_out_format=json "${@:3}" \
        >"$results/$1.log" 2>&1 || { cat "$results/$1.log"; exit 1; }
}

for source in bench/*_bench.cpp; do
    name=$(basename "$source" _bench.cpp)
    if [[ -x $programs/${name}_bench ]]; then # not built if a peer is missing; the report then says so
        run "$name" "$name" "$@"
    fi
done
# Once more as on a processor without AES and SHA instructions. For OpenSSL, clear the feature bits 57
# and 33 of its first word and 29 of its second. For nettle, name an unknown vendor.
export OPENSSL_ia32cap=~0x200000200000000:~0x20000000 NETTLE_FAT_OVERRIDE=vendor:other
ZX_CPU=avx2 run digest-avx2 digest --benchmark_filter=SHA1 "$@"
ZX_CPU=portable run zxaes-portable zxaes --benchmark_filter='AES_(ECB|CBC)' "$@"

scripts/bench_report.py "$results"
