#!/usr/bin/env bash
# Runs every test program of the libraries under valgrind's memcheck, which also looks for leaks and open
# descriptors. Runs two of the programs under helgrind, too.
#
#   scripts/memcheck.sh [PROGRAM...]
#
# If PROGRAMs are named, such as zxmd, only these run, and only under memcheck. Each of the large
# programs takes a minute or more, so this is not part of scripts/test.sh.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

scripts/install-deps.sh build test memcheck
build debug
build=build/debug

programs=("$@")
if [[ $# -eq 0 ]]; then
    for source in tests/{,faults/,stress/}*_test.cpp zxlog/tests/zxlog_test.cpp; do
        programs+=("$(basename "$source" _test.cpp)")
    done
fi

# The tests of each program that cannot work under valgrind.
declare -A left_out=(
    # They retry in the rest of a wait. The tests' clock runs too fast for that under valgrind.
    [faults]='*/epoll_one:*/connection:*/reachable'
    # In a child of a fork, memory to which only the other threads of the parent pointed counts as leaked.
    [log_stress]=LogStress.AForkEveryMillisecondWhileTheFileIsChanged
)

# shellcheck disable=SC2016  # these variables are awk's
# Finds an error in any process: errors in a forked child do not change the exit code of the program.
in_error='/ERROR SUMMARY: [1-9]/ { print FILENAME ": " $0; found = 1 } END { exit !found }'
# shellcheck disable=SC2016
# Finds a descriptor that the program itself left open: valgrind lists these but does not fail.
left_open='/Open .*descriptor/ { open = $0; next }
    open != "" && !/inherited from parent/ { print open; found = 1 }
    { open = "" }
    END { exit !found }'

# Runs a program; the reports of valgrind about it and its children are in $logs.
memcheck() {
    local path
    path=$(find "$build" -name "$1_test" -type f)
    rm -rf "$logs"
    mkdir -p "$logs"
    # Do not let valgrind free the C library's memory at the end: in a child, that would also write out the
    # output that the parent has still buffered.
    valgrind --run-libc-freeres=no --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect --track-fds=yes --log-file="$logs/%p" \
        "$path" --gtest_brief=1 --gtest_filter="-${left_out[$1]-}" &
    wait $! || return
    ! awk "$in_error" "$logs"/* && ! awk "$left_open" "$logs/$!"
}

export ZX_CPU=portable # valgrind does not support all instructions of the other code paths
logs=$build/memcheck
failed=()
for program in "${programs[@]}"; do
    echo "== memcheck $program"
    memcheck "$program" || { failed+=("$program"); grep -hv inherited "$logs"/*; }
done
if [[ $# -eq 0 ]]; then
    for program in zxcommon_hpp zxfifo; do
        echo "== helgrind $program"
        # Helgrind does not see that atomics order what the readers of a shared list do.
        valgrind --tool=helgrind --quiet --error-exitcode=99 "$build/tests/${program}_test" --gtest_brief=1 \
            --gtest_filter='-SharedListTest.*' ||
            failed+=("helgrind $program")
    done
fi
[[ ${#failed[@]} -eq 0 ]] || { printf 'failed: %s\n' "${failed[*]}" >&2; exit 1; }
