#!/usr/bin/env bash
# Makes the Debian packages in build/packages and checks them with lintian.
#
#   scripts/package.sh [--arch arm64] [--try]
#
# With --arch, it makes those of another architecture, with Debian's cross compiler.
# With --try, which needs root, it also installs the packages in a minimal Debian system, builds and runs
# programs with them there, purges them, and fails if a file is left. This system uses the package sources
# and keys of this machine, and is deleted at the end. That of another architecture runs under qemu.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
native=$(dpkg --print-architecture)
arch=$native
try=''
while [[ $# -gt 0 ]]; do
    case $1 in
        --arch)
            [[ ${2-} == arm64 ]] || misused
            arch=$2
            shift
            ;;
        --try) try=yes ;;
        *) misused ;;
    esac
    shift
done

if [[ $try && $(id -u) -ne 0 ]]; then
    echo "$0: --try needs root" >&2
    exit 1
fi

foreign=()
[[ $arch == "$native" ]] || foreign=(cross)
stage "needed packages" scripts/install-deps.sh build docs package "${foreign[@]}"
[[ -z $try ]] || need_emulation "$arch"
umask 022
# Every build of the same sources gives the same packages: they have the date of the commit, or in a
# released tree without git that of CHANGELOG.md.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CHANGELOG.md)}
export SOURCE_DATE_EPOCH
stage documentation scripts/docs.sh

build=build/package
triplet=$(dpkg-architecture -a"$arch" -qDEB_HOST_MULTIARCH)
settings=(-DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR="lib/$triplet"
    -DCMAKE_SKIP_RPATH=ON -DZX_BUILD_TESTS=OFF)
if [[ $arch != "$native" ]]; then
    build+=-$arch
    settings+=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/cross.cmake" -DZX_ARCH="$arch")
    stage "the libraries of $arch" scripts/sysroot.sh "$arch"
fi
packages=$PWD/build/packages
make_packages() {
    cmake -S . -B "$build" -G Ninja "${settings[@]}" >/dev/null
    cmake --build "$build" | counted
    rm -rf "$packages"/{*_"$arch".deb,_CPack_Packages}
    (cd "$build" && cpack -B "$packages" >cpack.log 2>&1) || { cat "$build/cpack.log"; exit 1; }
    rm -rf "$packages/_CPack_Packages"
}
stage "the packages" make_packages

# Suppressed: the first version of a package in Debian must close a bug, but these packages do not go to
# Debian; and libzxcommon.so is not a link, but a linker script that also links cJSON.
lintian --fail-on error,warning \
    --suppress-tags initial-upload-closes-no-bugs,lacks-unversioned-link-to-shared-library \
    "$packages"/*_"$arch".deb
ls -l "$packages"/*_"$arch".deb

[[ $try ]] || exit 0
stage "try the packages" packaging/debian/try.sh "$arch" "$packages"/*_"$arch".deb
