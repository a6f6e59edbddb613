#!/usr/bin/env bash
# Measures what tools cost that watch a whole program: for a pair of pthread_mutex_lock and unlock, and for
# a calloc with its free. Prints the lowest times in nanoseconds, and how many times the plain one that is.
#
#   scripts/bench-tools.sh [TURNS]  7 turns if not given
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

turns=${1:-7}
[[ $turns =~ ^[1-9][0-9]*$ ]] || misused
scripts/install-deps.sh build bench memcheck
build bench zxlock_bench zxmem_bench
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# measure WORK TOOL [COMMAND...]: prints these two and the time, or no time if the tool does not work here.
measure() {
    local -a program=(build/bench/bench/zxmem_bench --benchmark_filter='calloc_free/glibc/1000$')
    [[ $1 != lock* ]] || program=(build/bench/bench/zxlock_bench --benchmark_filter='obtain_release/pthread$')
    printf '%s,%s,' "$1" "$2"
    "${@:3}" "${program[@]}" --benchmark_min_time=0.05 --benchmark_format=csv 2>/dev/null |
        awk -F, '/^"/ { ns = $3 } END { print ns }' || true
}

je=LD_PRELOAD=libjemalloc.so.2
for ((turn = 0; turn < turns; ++turn)); do
    measure lock plain
    measure lock 'perf lock record' perf lock record -o "$scratch/perf.data" --
    measure lock 'valgrind --tool=none' valgrind --tool=none
    measure lock helgrind valgrind --tool=helgrind
    measure glibc plain
    measure glibc mtrace env LD_PRELOAD=libc_malloc_debug.so.0 MALLOC_TRACE="$scratch/mtrace"
    measure jemalloc plain env $je
    measure jemalloc 'profile of samples' env $je MALLOC_CONF=prof:true
    measure jemalloc 'profile of all' env $je MALLOC_CONF=prof:true,lg_prof_sample:0
    measure mimalloc plain env LD_PRELOAD=libmimalloc.so.2
    measure mimalloc 'statistics at the end' env LD_PRELOAD=libmimalloc.so.2 MIMALLOC_SHOW_STATS=1
done | awk -F, '
    { name = $1 "," $2; if (!(name in lowest)) order[++count] = name }
    $3 != "" && (!lowest[name] || $3 + 0 < lowest[name]) { lowest[name] = $3 + 0 }
    END {
        for (i = 1; i <= count; ++i) {
            split(order[i], part, ",")
            ns = lowest[order[i]]
            plain = lowest[part[1] ",plain"]
            printf "%-9s %-22s %9.1f ns %8.2f\n", part[1], part[2], ns, plain ? ns / plain : 0
        }
    }'
