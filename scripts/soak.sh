#!/usr/bin/env bash
# Builds zxrelay and has it work for MINUTES as a server under clients and events of all kinds:
# scripts/soak.sh MINUTES. Prints what was found as a table, and fails when something does not hold.
# See scripts/soak.py.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/help.sh

if [[ ! ${1-} =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: $0 MINUTES" >&2
    exit 2
fi
scripts/install-deps.sh build test
cmake --preset release >/dev/null
cmake --build --preset release --target zxrelay -- --quiet
exec python3 scripts/soak.py "$1" build/release/tools/zxrelay/zxrelay samples/sample.ts
