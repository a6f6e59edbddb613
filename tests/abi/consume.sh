#!/usr/bin/env bash
# consume.sh CMAKE CC CXX [SOURCE...]
#
# Builds and runs programs of somebody else against an installed tree: C and C++, shared and static,
# through find_package and through pkg-config. When the tree is not the system's, both find it
# through the environment. SOURCEs, .c or .cpp, are more such programs.
set -euo pipefail
cmake=$1 cc=$2 cxx=$3
shift 3
consumer=$(cd "$(dirname "$0")" && pwd)/consumer

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$consumer/main.c" "$work/main.cpp" # the same program in both languages
sources_C=$consumer/main.c
sources_CXX=$work/main.cpp
for source in "$@"; do
    case $source in
        *.c) sources_C+=";$source" ;;
        *) sources_CXX+=";$source" ;;
    esac
done

for language in C CXX; do
    sources=sources_$language
    "$cmake" --no-warn-unused-cli -S "$consumer" -B "$work/$language" -DCONSUMER_LANGUAGE=$language \
        -DCONSUMER_SOURCES="${!sources}" -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_CXX_STANDARD=20 >/dev/null
    "$cmake" --build "$work/$language" --parallel "$(nproc)" >/dev/null
    "$cmake" --build "$work/$language" --target test
done

echo "-lzxcommon alone"
# shellcheck disable=SC2046  # these are words
"$cc" "$consumer/main.c" -o "$work/program" $(pkg-config --cflags --libs-only-L zxcommon) -lzxcommon
timeout 60 "$work/program"
echo "loaded"
"$cc" "$consumer/loaded.c" -o "$work/program"
timeout 60 "$work/program"

# Word splitting is wanted below: the flags are several words.
IFS=' ;'
# shellcheck disable=SC2086
for module in zxcommon zxcommon-static; do
    flags=$(pkg-config --cflags --libs "$module")
    for source in $sources_C $sources_CXX; do
        case $source in
            *.c) "$cc" "$source" -o "$work/program" $flags ;;
            *) "$cxx" -std=c++20 "$source" -o "$work/program" $flags ;;
        esac
        echo "$module $source"
        timeout 60 "$work/program"
        linked=$(readelf -d "$work/program" | grep -c 'NEEDED.*libzxcommon\.so\.1\]' || true)
        # The linker drops a shared library that nothing calls. main.* calls it.
        case $module:$source in
            zxcommon-static:*) [[ $linked == 0 ]] ;;
            zxcommon:*/main.*) [[ $linked == 1 ]] ;;
        esac || { echo "linked with the shared library: $linked" >&2; exit 1; }
    done
done
