#!/usr/bin/env bash
# Builds and runs the benchmarks beside their peers; arguments go to every benchmark program, such as
# --benchmark_repetitions=5. One program: scripts/bench.sh zxfifo [...].
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build bench
cmake --preset bench >/dev/null
cmake --build --preset bench -- --quiet

only=
if [[ $# -gt 0 && $1 != -* ]]; then
    only=$1
    shift
fi
for program in build/bench/bench/${only:-*}_bench; do
    echo "== $(basename "$program")"
    "$program" "$@"
done
