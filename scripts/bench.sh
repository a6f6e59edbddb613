#!/usr/bin/env bash
# Builds the benchmarks and runs them beside their peers.
#
#   scripts/bench.sh zxfifo [...]  one program, with Google Benchmark's options; writes nothing
#   scripts/bench.sh [...]         all of them; about eight minutes on a quiet machine. Writes
#                                  build/bench/results/ and, from these, the tables of
#                                  docs/performance.md and the plots in docs/performance/
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

# run RESULT PROGRAM [...]
run() {
    echo "== $1"
    "$programs/$2_bench" --benchmark_repetitions=7 --benchmark_min_time=0.1 \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
        --benchmark_out="$results/$1.json" --benchmark_out_format=json "${@:3}" \
        >"$results/$1.log" 2>&1 || { cat "$results/$1.log"; exit 1; }
}

for source in bench/*_bench.cpp; do
    name=$(basename "$source" _bench.cpp)
    if [[ -x $programs/${name}_bench ]]; then # or a peer is missing, which the report then says
        run "$name" "$name" "$@"
    fi
done
# Once more as on a processor without instructions for AES and SHA. OpenSSL is told by bits: 57 and 33
# of its first word, 29 of its second; nettle by a maker whose processors it does not know.
export OPENSSL_ia32cap=~0x200000200000000:~0x20000000 NETTLE_FAT_OVERRIDE=vendor:other
ZX_CPU=avx2 run digest-avx2 digest --benchmark_filter=SHA1 "$@"
ZX_CPU=portable run zxaes-portable zxaes --benchmark_filter='AES_(ECB|CBC)' "$@"

scripts/bench_report.py "$results"
