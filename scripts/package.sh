#!/usr/bin/env bash
# Makes the Debian packages in build/packages and has lintian look at them.
#
# scripts/package.sh --try, as root, then installs them in a bare Debian, builds and runs programs
# against them there, purges them, and fails if a file is left. That tree is made with the sources of
# packages and the keys that this machine has, and removed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/help.sh
case "$# ${1-}" in
    "0 " | "1 --try") ;;
    *) echo "usage: $0 [--try]" >&2; exit 2 ;;
esac

scripts/install-deps.sh build package
umask 022
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)} # the same packages again
export SOURCE_DATE_EPOCH
[[ ! -x scripts/docs.sh ]] || scripts/docs.sh

build=build/package
packages=$PWD/build/packages
cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
    -DCMAKE_SKIP_INSTALL_RPATH=ON -DZX_BUILD_TESTS=OFF >/dev/null
cmake --build $build -- --quiet
rm -rf "$packages"
(cd $build && cpack -B "$packages" >cpack.log 2>&1) || { cat $build/cpack.log; exit 1; }
rm -rf "$packages/_CPack_Packages"

# The first version of a package in Debian closes the request for it; these go nowhere near.
lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$packages"/*.deb
ls -l "$packages"/*.deb

[[ ${1-} == --try ]] || exit 0
[[ $(id -u) -eq 0 ]] || { echo "$0: --try needs root" >&2; exit 1; }
tree=$(mktemp -d)
trap 'rm -rf --one-file-system "$tree"' EXIT
# What is mounted there is mounted for that process only, and gone with it, however it ends.
unshare --mount --propagation private packaging/debian/try.sh "$tree" "$packages"/*.deb
