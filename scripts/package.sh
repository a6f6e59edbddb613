#!/usr/bin/env bash
# Makes the Debian packages in build/packages and has lintian look at them:
#
#   scripts/package.sh [--try]
#
# --try, as root, then installs them in a bare Debian, builds and runs programs against them there, purges
# them, and fails if a file is left. That tree is made with the sources of packages and the keys that
# this machine has, and removed at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
case "$# ${1-}" in
    "0 " | "1 --try") ;;
    *) misused ;;
esac

if [[ ${1-} == --try && $(id -u) -ne 0 ]]; then
    echo "$0: --try needs root" >&2
    exit 1
fi

stage "needed packages" scripts/install-deps.sh build docs package
umask 022
# The same packages again, from a checkout and from a released tree alike: their date is that of the
# commit, or of the list of changes.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)}
export SOURCE_DATE_EPOCH
stage documentation scripts/docs.sh

build=build/package
packages=$PWD/build/packages
make_packages() {
    cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DCMAKE_SKIP_INSTALL_RPATH=ON -DZX_BUILD_TESTS=OFF >/dev/null
    cmake --build $build | counted
    rm -rf "$packages"
    (cd $build && cpack -B "$packages" >cpack.log 2>&1) || { cat $build/cpack.log; exit 1; }
    rm -rf "$packages/_CPack_Packages"
}
stage "the packages" make_packages

# The first version of a package in Debian closes the request for it; these go nowhere near. And what
# -lzxcommon finds is no link, but a script that brings cJSON along.
lintian --fail-on error,warning \
    --suppress-tags initial-upload-closes-no-bugs,lacks-unversioned-link-to-shared-library "$packages"/*.deb
ls -l "$packages"/*.deb

[[ ${1-} == --try ]] || exit 0
packaging/debian/try.sh "$packages"/*.deb
