#!/usr/bin/env bash
# Runs clang-tidy, cppcheck and the analyzer of gcc over the libraries and the tools. Fails on any
# finding, and if the sources contain more than ten exceptions for these analyses.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
[[ $# -eq 0 ]] || misused

scripts/install-deps.sh build analyse
jobs=$(nproc)
sources() { find src zxlog/src tools -name '*.cpp' "$@"; }

# configure DIRECTORY COMPILER [FLAGS]: sets up the build directory of one analysis.
configure() {
    cmake -S . -B "$1" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER="$2" \
        -DCMAKE_CXX_FLAGS="${3-}" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
        -DZX_BUILD_TESTS=OFF >/dev/null
}

echo "== exceptions"
exceptions=$(grep -rnE '[N]OLINT|cppcheck-[s]uppress|-[W]no-analyzer|[#] skipped:' \
    include shared src zxlog tools scripts/analyse.sh || true)
count=$(grep -c . <<<"$exceptions" || true)
printf '%s\n%d of at most 10\n' "$exceptions" "$count"
[[ $count -le 10 ]]

# What this version of the analyzer misunderstands in C++.
gcc_exceptions=(
    -Wno-analyzer-use-of-uninitialized-value # reported for a class that is returned by value
    -Wno-analyzer-shift-count-overflow       # reported for a vector that is shifted by a number
)
echo "== gcc"
configure build/analyse/gcc g++ "-fanalyzer ${gcc_exceptions[*]}"
# skipped: what includes the option parser, because the analyzer does not terminate on its templates
ninja -C build/analyse/gcc -t targets all | sed -n 's/^\(.*\.cpp\.o\): .*/\1/p' | grep -vE '/(options|config/config|config/table)\.cpp\.o$' |
    xargs ninja -C build/analyse/gcc --quiet -j "$jobs"

# cppcheck reads a copy of the sources, in which two constructs are replaced that it cannot parse.
echo "== cppcheck"
copy=build/analyse/cppcheck
rm -rf "$copy"
mkdir -p "$copy"
find include shared src zxlog tools -type f -print0 | xargs -0 cp --parents -t "$copy"
grep -rlE '__VA_OPT__|\[\] \{' "$copy" | xargs sed -i \
    -e 's/__VA_OPT__(, ) __VA_ARGS__/, ##__VA_ARGS__/g' -e 's/\[\] {/[]() {/g'
includes=(. include zxlog/include src tools tools/zxcapture tools/zxctl tools/zxrelay)
sources | (cd "$copy" && cppcheck --file-list=- -j "$jobs" "${includes[@]/#/-I}" \
    --language=c++ --std=c++20 --enable=warning,performance,portability --inline-suppr \
    --error-exitcode=1 --quiet)

echo "== clang-tidy"
configure build/analyse/clang clang++
sources -print0 |
    xargs -0 -n 1 -P "$jobs" clang-tidy -p build/analyse/clang --quiet 2> >(grep -v ' warnings\? generated' >&2 || true)
