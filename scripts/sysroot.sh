#!/usr/bin/env bash
# Makes build/sysroot/ARCH: the headers and libraries of another architecture, to build for it, to run
# its programs under qemu and to make packages. A tree with the same packages stays. Nothing on this machine
# is changed.
#
#   scripts/sysroot.sh ARCH
#
# ARCH: arm64 or s390x. The packages come from the package sources of this machine. A user who is not root
# needs a range of ids in /etc/subuid and /etc/subgid, which adduser gives to each new user.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh
case "$# ${1-}" in
    "1 arm64" | "1 s390x") ;;
    *) misused ;;
esac
tree=build/sysroot/$1
packages=libc6-dev,libstdc++6,libcjson-dev,libcli11-dev,libcurl4-openssl-dev,libgmock-dev
packages+=,libgtest-dev,libhttp-parser-dev,libmicrohttpd-dev,libncurses-dev,libpcap-dev,libsystemd-dev
packages+=,libtomlplusplus-dev,rapidjson-dev,systemtap-sdt-dev
[[ $(cat "$tree/DEBIAN/asked" 2>/dev/null) != "$packages" ]] || exit 0
# shellcheck source=/dev/null
source /etc/os-release
# shellcheck disable=SC2016  # this variable is apt's
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
    "Codename: $VERSION_CODENAME" 'Component: main' | head -n 1)
work=$tree.part
mkdir -p build/sysroot
rm -rf "$work"
mkdir "$work"
# dpkg-shlibdeps finds in DEBIAN which packages the libraries come from.
# shellcheck disable=SC2016  # for the shell of mmdebstrap
mmdebstrap --quiet --variant=extract --architectures="$1" --include="$packages" \
    --extract-hook='mkdir "$1/DEBIAN"
        for package in "$1"/var/cache/apt/archives/*.deb; do
            for file in shlibs symbols; do
                dpkg-deb --info "$package" $file 2>/dev/null >>"$1/DEBIAN/$file" || true
            done
        done' \
    "$VERSION_CODENAME" - "$mirror" |
    tar --extract --directory "$work" --no-same-owner --exclude=./dev
# Only what compilers and programs need: qemu uses the files here instead of those of the machine.
find "$work" -mindepth 1 -maxdepth 1 ! -name 'lib*' ! -name usr ! -name DEBIAN -exec rm -rf {} +
find "$work/usr" -mindepth 1 -maxdepth 1 ! -name 'lib*' ! -name include ! -name share -exec rm -rf {} +
find "$work/usr/share" -mindepth 1 -maxdepth 1 ! -name cmake ! -name pkgconfig -exec rm -rf {} +
# Links with a full path would lead out of the tree.
find "$work" -type l -lname '/*' -printf '%p\n%l\n' | while read -r link && read -r target; do
    ln -sfr "$work$target" "$link"
done
# So would the full paths in the files of some packages for CMake.
# shellcheck disable=SC2016  # for CMake
find "$work/usr/lib" -name '*.cmake' -exec sed -i 's#"/usr/#"${CMAKE_SYSROOT}/usr/#g' {} +
echo "$packages" >"$work/DEBIAN/asked"
rm -rf "$tree"
mv "$work" "$tree"
