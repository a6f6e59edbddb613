#!/usr/bin/env bash
# Runs the tests under valgrind: memcheck with leaks and open descriptors over every test program of
# the libraries, helgrind over the locks. Arguments name programs to run instead, such as zxstr.
# A minute and more for each of the large ones, so it is not part of scripts/test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh build test memcheck
cmake --preset debug >/dev/null
cmake --build --preset debug -- --quiet
build=build/debug

programs=("$@")
if [[ $# -eq 0 ]]; then
    for source in tests/zx*_test.cpp zxlog/tests/zxlog_test.cpp; do
        programs+=("$(basename "$source" _test.cpp)")
    done
fi

# What cannot work under valgrind, program:filter, each with its reason.
declare -A left_out=(
)

failed=()
for program in "${programs[@]}"; do
    path=$build/tests/${program}_test
    [[ $program == zxlog ]] && path=$build/zxlog/tests/zxlog_test
    log=$build/memcheck.$program.log
    echo "== memcheck $program"
    valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --track-fds=yes --log-file="$log" "$path" --gtest_brief=1 --gtest_filter="*:${left_out[$program]-}" ||
        { failed+=("$program"); cat "$log"; }
done
if [[ $# -eq 0 ]]; then
    echo "== helgrind zxlock"
    valgrind --tool=helgrind --quiet --error-exitcode=99 "$build/tests/zxlock_test" --gtest_brief=1 ||
        failed+=("helgrind zxlock")
fi
[[ ${#failed[@]} -eq 0 ]] || { printf 'failed: %s\n' "${failed[*]}" >&2; exit 1; }
