#!/usr/bin/env bash
# Installs the Debian packages of one or more groups, if they are missing.
#
#   scripts/install-deps.sh GROUP...
#
# Groups: build, test, bench, clang, analyse, memcheck, coverage, docs, package, cross.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

packages_of() {
    case $1 in
        build) echo build-essential cmake ninja-build pkg-config libcjson-dev libcli11-dev \
                    libcurl4-openssl-dev libhttp-parser-dev libmicrohttpd-dev libncurses-dev libpcap-dev \
                    rapidjson-dev libsystemd-dev libtomlplusplus-dev systemtap-sdt-dev ;;
        test) echo abigail-tools libgtest-dev libgmock-dev clang-format chromium \
                   chromium-driver curl ffmpeg iproute2 jq prometheus python3 python3-jsonschema \
                   systemd tcpdump tshark vlc-bin vlc-plugin-base ;;
        bench) echo gstreamer1.0-plugins-base gstreamer1.0-tools icecast2 iproute2 libabsl-dev \
                    libavformat-dev libavutil-dev libbenchmark-dev libboost-dev libbsd-dev libevent-dev \
                    libglib2.0-dev libisal-dev libjack-jackd2-dev libjemalloc2 libmimalloc2.0 libnet1-dev \
                    libspdlog-dev libssl-dev libtins-dev linux-perf multicat nettle-dev python3 socat \
                    zlib1g-dev ;;
        clang) echo clang libclang-rt-14-dev ;; # for the presets asan and fuzz
        analyse) echo clang clang-tidy cppcheck ;;
        memcheck) echo valgrind ;;
        coverage) echo gcovr ;;
        docs) echo doxygen python3 ;;
        package) echo debootstrap dpkg-dev fakeroot lintian ;;
        cross) echo g++-aarch64-linux-gnu g++-s390x-linux-gnu mmdebstrap qemu-user qemu-user-static uidmap ;;
        *) misused ;;
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

# installed: reads apt's progress reports and prints one line for every ten percent.
installed() {
    local kind percent tenth shown=''
    while IFS=: read -r kind _ percent _; do
        case $kind in
            dlstatus) kind=fetched ;;
            pmstatus) kind=installed ;;
            *) continue ;;
        esac
        tenth=$kind.$((${percent%%.*} / 10))
        [[ $tenth == "$shown" ]] || printf '   %s: %s %%\n' "$kind" "${percent%%.*}"
        shown=$tenth
    done
}

# Of these packages, only the programs are wanted, never the service.
without_services() {
    local name
    [[ -d /run/systemd/system ]] || return 0
    for name in prometheus icecast2; do
        [[ " ${missing[*]} " != *" $name "* ]] || "${as_root[@]}" systemctl mask "$name.service"
    done
}

as_root=(env DEBIAN_FRONTEND=noninteractive)
[[ $(id -u) -eq 0 ]] || as_root=(sudo "${as_root[@]}")
echo "installing these packages and their dependencies: ${missing[*]}"
without_services
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -q --no-install-recommends -o APT::Status-Fd=1 "${missing[@]}" | installed
