#!/usr/bin/env bash
# Runs the tests under valgrind: memcheck with leaks and open descriptors over every test program of
# the libraries, helgrind over what threads share:
#
#   scripts/memcheck.sh [PROGRAM...]
#
# PROGRAMs, such as zxstr, are run instead. A minute and more for each of the large ones, so it is not
# part of scripts/test.sh.
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

# What cannot work under valgrind, by program.
declare -A left_out=(
    # They try again within what is left of a wait, and their clock is too fast for that here.
    [faults]='*/epoll_one:*/connection:*/reachable'
    # In a child that is forked beside other threads, what only they knew of counts as lost.
    [log_stress]=LogStress.AForkEveryMillisecondWhileTheFileIsChanged
    [zxmd_system]=SystemTest.LimitsAreRaisedToTheirMost # valgrind refuses another limit of descriptors
    [zxnet]=NetTest.ReceivesWhatIsThere                # announces more room than there is, on purpose
    [zxsignal]=SignalTest.CatchSetsWhatEverySignalDoes # /proc shows that valgrind catches all of them
)

# shellcheck disable=SC2016  # these are awk's
# Finds an error in any process: what a forked child meets does not change how the program ends.
in_error='/ERROR SUMMARY: [1-9]/ { print FILENAME ": " $0; found = 1 } END { exit !found }'
# shellcheck disable=SC2016
# Finds a descriptor that the program itself left open: valgrind lists them and fails for none.
left_open='/Open .*descriptor/ { open = $0; next }
    open != "" && !/inherited from parent/ { print open; found = 1 }
    { open = "" }
    END { exit !found }'

# Runs a program; what valgrind says about it and its children is in $logs.
memcheck() {
    local path
    path=$(find "$build" -name "$1_test" -type f)
    rm -rf "$logs"
    mkdir -p "$logs"
    # To free the C library's memory behind a child writes what the parent has still to write.
    valgrind --run-libc-freeres=no --error-exitcode=99 --leak-check=full \
        --errors-for-leak-kinds=definite,indirect --track-fds=yes --log-file="$logs/%p" \
        "$path" --gtest_brief=1 --gtest_filter="-${left_out[$1]-}" &
    wait $! || return
    ! awk "$in_error" "$logs"/* && ! awk "$left_open" "$logs/$!"
}

export ZX_CPU=portable # valgrind does not know every instruction that the others have
logs=$build/memcheck
failed=()
for program in "${programs[@]}"; do
    echo "== memcheck $program"
    memcheck "$program" || { failed+=("$program"); grep -hv inherited "$logs"/*; }
done
if [[ $# -eq 0 ]]; then
    for program in zxfifo zxlock zxmem zxthread; do
        echo "== helgrind $program"
        # Helgrind takes a thread that the system refuses for a mistake.
        valgrind --tool=helgrind --quiet --error-exitcode=99 "$build/tests/${program}_test" --gtest_brief=1 \
            --gtest_filter=-ThreadTest.IsNotCreatedWhenTheSystemRefuses ||
            failed+=("helgrind $program")
    done
fi
[[ ${#failed[@]} -eq 0 ]] || { printf 'failed: %s\n' "${failed[*]}" >&2; exit 1; }
