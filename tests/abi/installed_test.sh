#!/bin/sh
# installed_test.sh CMAKE BUILD_DIR SOURCE_DIR LIBDIR CC CXX
#
# Installs the build into a folder, moves that folder, and builds and runs programs of somebody
# else against it: C and C++, shared and static, through find_package and through pkg-config.
set -eu
cmake=$1 build=$2 source=$3 libdir=$4 cc=$5 cxx=$6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" >/dev/null
prefix=$work/moved
mv "$work/first" "$prefix"
if grep -rlF "$work/first" "$prefix"; then
    echo "these files name the prefix they were installed to" >&2
    exit 1
fi

for language in C CXX; do
    "$cmake" --no-warn-unused-cli -S "$source/consumer" -B "$work/$language" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCONSUMER_LANGUAGE=$language -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
    "$cmake" --build "$work/$language" >/dev/null
    "$cmake" --build "$work/$language" --target test
done

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
for module in zxcommon zxcommon-static; do
    flags=$(pkg-config --cflags --libs "$module")
    # shellcheck disable=SC2086  # the flags are words
    "$cc" "$source/consumer/main.c" -o "$work/c" $flags -Wl,-rpath,"$prefix/$libdir"
    # shellcheck disable=SC2086
    "$cxx" -x c++ "$source/consumer/main.c" -x none -o "$work/cxx" $flags \
        -Wl,-rpath,"$prefix/$libdir"
    "$work/c"
    "$work/cxx"
    needed=$(readelf -d "$work/c" | grep -c 'NEEDED.*libzxcommon\.so\.1\]' || true)
    case $module in
    *-static) [ "$needed" = 0 ] ;;
    *) [ "$needed" = 1 ] ;;
    esac
done
