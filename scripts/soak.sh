#!/usr/bin/env bash
# Builds zxrelay and has it work for MINUTES as a server under clients and events of all kinds:
#
#   scripts/soak.sh MINUTES
#
# Prints what was found as a table, and fails when something does not hold. See scripts/soak.py.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ $# -eq 1 && $1 =~ ^[1-9][0-9]*$ ]] || misused
scripts/install-deps.sh build test
build release zxrelay
exec python3 scripts/soak.py "$1" build/release/tools/zxrelay/zxrelay samples/sample.ts
