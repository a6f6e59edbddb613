#!/usr/bin/env bash
# Runs the scenarios of tests/stress one after the other, for minutes instead of seconds.
#
#   scripts/stress.sh MINUTES [PRESET]
#
# All scenarios together take MINUTES. The default preset is release; tsan and asan find more faults.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ $# -le 2 && ${1-} =~ ^[1-9][0-9]*$ ]] || misused
preset=${2:-release}

scripts/install-deps.sh build test
build "$preset" stress_test log_stress_test
programs=("build/$preset/tests/stress/stress_test" "build/$preset/tests/stress/log_stress_test")
scenarios=$(for program in "${programs[@]}"; do "$program" --gtest_list_tests; done | grep -c '^  ')
export ZX_STRESS_SECONDS=$(($1 * 60 / scenarios))
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
for program in "${programs[@]}"; do "$program"; done
