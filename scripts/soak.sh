#!/usr/bin/env bash
# Builds zxrelay and runs it as a server for MINUTES, with many kinds of clients and events.
#
#   scripts/soak.sh MINUTES
#
# Prints the results as a table, and fails if one of them is not as required. See scripts/soak.py.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ $# -eq 1 && $1 =~ ^[1-9][0-9]*$ ]] || misused
scripts/install-deps.sh build test
build release zxrelay
exec python3 scripts/soak.py "$1" build/release/tools/zxrelay/zxrelay samples/sample.ts
