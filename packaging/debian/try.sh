#!/usr/bin/env bash
# try.sh TREE PACKAGE...: for scripts/package.sh, in a mount namespace of its own.
set -euo pipefail
tree=$1
shift
project=$(cd "$(dirname "$0")/../.." && pwd)

# The machine's own sources and keys, whatever they are.
source /etc/os-release
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' \
    "Codename: $VERSION_CODENAME" 'Component: main' | head -n 1)
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
log=$project/build/debootstrap.log
chmod 755 "$tree"
echo "== a bare Debian $VERSION_CODENAME"
debootstrap --keyring="$keyring" --variant=minbase "$VERSION_CODENAME" "$tree" "$mirror" \
    >"$log" 2>&1 || { tail "$log"; exit 1; }
for path in /etc/apt /usr/share/keyrings; do
    mkdir -p "$tree$path"
    rm -rf "${tree:?}$path"
    cp -aL "$path" "$tree$path"
done
cp -L /etc/resolv.conf /etc/hosts "$tree/etc/"
mount --rbind /proc "$tree/proc"
mount --rbind /dev "$tree/dev"

in_tree() { chroot "$tree" env PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"; }
install() { in_tree apt-get install -y -qq --no-install-recommends "$@" >/dev/null; }

# files: what is there, without what apt and dpkg write down for themselves.
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
in_tree zxcapture --read /tmp/try/tcp.pcap --quiet

echo "== programs against them"
cp -r "$project/tests/abi" "$tree/tmp/try/"
examples=()
if [[ -d $project/examples ]]; then
    cp -r "$project/examples" "$tree/tmp/try/"
    mapfile -t examples < <(cd "$tree" && find tmp/try/examples -name '*.c' -o -name '*.cpp')
fi
in_tree /tmp/try/abi/consume.sh cmake cc c++ "${examples[@]/#//}"

echo "== purge"
in_tree apt-get purge -y -qq libzxlog1 libzxcommon1 libzxcommon-dev zxcommon-tools >/dev/null
in_tree apt-get autoremove --purge -y -qq >/dev/null
files >"$tree/tmp/after"
diff "$tree/tmp/before" "$tree/tmp/after"
echo "nothing is left of $(wc -w <<<"$*") packages"
