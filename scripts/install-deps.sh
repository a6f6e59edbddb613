#!/usr/bin/env bash
# Installs the Debian packages of one or more groups, those that are missing: build,
# test, bench, fuzz, analyse, memcheck, coverage, docs, package.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/help.sh

packages_of() {
    case $1 in
        build) echo build-essential cmake ninja-build pkg-config libcjson-dev libcli11-dev \
                    libmicrohttpd-dev libpcap-dev ;;
        test) echo abigail-tools libgtest-dev libgmock-dev clang-format chromium \
                   chromium-driver curl ffmpeg iproute2 jq python3 tshark ;;
        bench) echo libavformat-dev libavutil-dev libbenchmark-dev libboost-dev libbsd-dev \
                    libglib2.0-dev libisal-dev libjack-jackd2-dev libnet1-dev libspdlog-dev libssl-dev \
                    libtins-dev nettle-dev python3 zlib1g-dev ;;
        fuzz) echo clang libclang-rt-14-dev ;;
        analyse) echo clang clang-tidy cppcheck ;;
        memcheck) echo valgrind ;;
        coverage) echo gcovr ;;
        docs) echo doxygen ;;
        package) echo debootstrap dpkg-dev fakeroot lintian ;;
        *) echo "usage: $0 [build|test|bench|fuzz|analyse|memcheck|coverage|docs|package]..." >&2; return 2 ;;
    esac
}

missing=()
for group in "$@"; do
    names=$(packages_of "$group")
    for name in $names; do
        state=$(dpkg-query -W -f '${Status}' "$name" 2>/dev/null || true)
        [[ $state == "install ok installed" ]] || missing+=("$name")
    done
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

as_root=()
[[ $(id -u) -eq 0 ]] || as_root=(sudo)
echo "installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
