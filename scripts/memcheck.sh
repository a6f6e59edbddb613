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
    for source in tests/*_test.cpp zxlog/tests/zxlog_test.cpp; do
        programs+=("$(basename "$source" _test.cpp)")
    done
fi

# What cannot work under valgrind, by program.
declare -A left_out=(
    # Names itself to exec() by /proc/self/exe, which is valgrind; a child of the other one hangs under
    # valgrind for a reason that is not known.
    [zxlog]=LocalTime.FollowsEveryZone:LogFile.ServesChildrenOfAThreadedProcess
    [zxmd_system]=SystemTest.LimitsAreRaisedToTheirMost # valgrind keeps descriptors for itself
    [zxnet]=NetTest.ReceivesWhatIsThere                 # announces more room than there is, on purpose
    [zxrelay_status]=StatusTest.ListsEveryBuffer        # the answer is not there in time
    [zxsignal]=SignalTest.CatchSetsWhatEverySignalDoes  # /proc shows the handlers of valgrind
)

# Finds a descriptor that the program itself left open: valgrind lists them and fails for none.
left_open='/Open .*descriptor/ { open = $0; next }
    open != "" && !/inherited from parent/ { print open; found = 1 }
    { open = "" }
    END { exit !found }'
logs=$build/memcheck
failed=()
for program in "${programs[@]}"; do
    path=$build/tests/${program}_test
    [[ $program == zxlog ]] && path=$build/zxlog/tests/zxlog_test
    rm -rf "$logs"
    mkdir -p "$logs"
    echo "== memcheck $program"
    valgrind --quiet --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
        --track-fds=yes --child-silent-after-fork=yes --log-file="$logs/%p" \
        "$path" --gtest_brief=1 --gtest_filter="-${left_out[$program]-}" &&
        ! awk "$left_open" "$logs"/* || { failed+=("$program"); cat "$logs"/*; }
done
if [[ $# -eq 0 ]]; then
    echo "== helgrind zxlock"
    valgrind --tool=helgrind --quiet --error-exitcode=99 "$build/tests/zxlock_test" --gtest_brief=1 ||
        failed+=("helgrind zxlock")
fi
[[ ${#failed[@]} -eq 0 ]] || { printf 'failed: %s\n' "${failed[*]}" >&2; exit 1; }
