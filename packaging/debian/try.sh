#!/usr/bin/env bash
# try.sh ARCH PACKAGE...: installs and tries the packages in a minimal Debian system of the architecture, whose
# programs must run here. Called by scripts/package.sh as root.
set -euo pipefail
arch=$1
shift
tree=$(mktemp -d)
trap 'rm -rf --one-file-system "$tree"' EXIT
project=$(cd "$(dirname "$0")/../.." && pwd)

# Use the package sources and keys of this machine.
# shellcheck source=/dev/null
source /etc/os-release
# shellcheck disable=SC2016  # this variable is apt's
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
    "Codename: $VERSION_CODENAME" 'Component: main' | head -n 1)
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
log=$project/build/debootstrap.log
chmod 755 "$tree"
echo "== a minimal Debian $VERSION_CODENAME for $arch; takes minutes"
debootstrap --arch="$arch" --keyring="$keyring" --variant=minbase "$VERSION_CODENAME" "$tree" "$mirror" \
    >"$log" 2>&1 || { tail "$log"; exit 1; }
for path in /etc/apt /usr/share/keyrings; do
    mkdir -p "$tree$path"
    rm -rf "${tree:?}$path"
    cp -aL "$path" "$tree$path"
done
for file in /etc/resolv.conf /etc/hosts; do
    [[ ! -e $file ]] || cp -L "$file" "$tree/etc/"
done
# The mounts are slaves, so that unmounting them does not affect the machine. At the end they are unmounted by
# name, because this script may itself run in a chroot, which cannot have mounts of its own.
trap 'umount --recursive --lazy "$tree/proc" "$tree/dev" || true; rm -rf --one-file-system "$tree"' EXIT
for path in /proc /dev; do
    mount --rbind --make-rslave "$path" "$tree$path"
done

# A compiler cache of this machine is not there.
in_tree() { chroot "$tree" env -u CMAKE_C_COMPILER_LAUNCHER -u CMAKE_CXX_COMPILER_LAUNCHER \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }
install() { in_tree apt-get install -y -qq --no-install-recommends "$@" >/dev/null; }

# files: lists all files except those that apt and dpkg keep for themselves.
files() { (cd "$tree" && find . -xdev \( -path ./tmp -o -path ./var/cache -o -path ./var/log -o \
    -path ./var/lib/apt -o -path './var/lib/dpkg/*-old' \) -prune -o -print | sort); }

in_tree apt-get update -qq
install cmake g++ make pkg-config
files >"$tree/tmp/before"

echo "== install"
mkdir "$tree/tmp/try"
cp "$@" "$project/tests/data/tcp.pcap" "$tree/tmp/try"
install "${@/#*\///tmp/try/}"
in_tree zxrelay --version
in_tree zxctl list
in_tree zxcapture --read /tmp/try/tcp.pcap --quiet

echo "== programs that use them"
cp -r "$project/tests/abi" "$tree/tmp/try/"
examples=()
if [[ -d $project/examples ]]; then
    cp -r "$project/examples" "$tree/tmp/try/"
    if [[ $arch != "$(dpkg --print-architecture)" ]]; then
        echo "   without the example zxnet_group: qemu lacks the socket option IP_MULTICAST_IF"
        rm "$tree/tmp/try/examples/zxnet_group.c"
    fi
    mapfile -t examples < <(cd "$tree" && find tmp/try/examples -name '*.c' -o -name '*.cpp')
fi
in_tree /tmp/try/abi/consume.sh cmake cc c++ "${examples[@]/#//}"

echo "== purge"
in_tree apt-get purge -y -qq libzxlog1 libzxcommon1 libzxcommon-dev zxcommon-tools >/dev/null
in_tree apt-get autoremove --purge -y -qq >/dev/null
files >"$tree/tmp/after"
diff "$tree/tmp/before" "$tree/tmp/after"
echo "no file of the $(wc -w <<<"$*") packages is left"
