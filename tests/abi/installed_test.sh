#!/bin/sh
# installed_test.sh CMAKE BUILD_DIR LIBDIR CC CXX
#
# Installs the build into a folder, moves that folder, and lets programs of somebody else use it.
# The examples are only built here: they run as tests of their own.
set -eu
cmake=$1 build=$2 libdir=$3 cc=$4 cxx=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" >/dev/null
prefix=$work/moved
mv "$work/first" "$prefix"
if grep -rlF "$work/first" "$prefix"; then
    echo "these files name the prefix they were installed to" >&2
    exit 1
fi

export CMAKE_PREFIX_PATH="$prefix" PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
export LD_RUN_PATH="$prefix/$libdir"
"$(dirname "$0")/consume.sh" "$cmake" "$cc" "$cxx"

"$cmake" -S "$prefix/share/doc/libzxcommon-dev/examples" -B "$work/examples" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" >/dev/null
"$cmake" --build "$work/examples" >/dev/null
