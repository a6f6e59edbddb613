#!/usr/bin/env bash
# Compares zxcapture with tcpdump and tshark on a capture file: the lowest processor times of several
# turns, in which the programs alternate, for the frames of the file 60 times over.
#
#   scripts/bench-capture.sh FILE [TURNS]  5 turns if not given
#
# The figures in docs/performance.md are of a file with 4709 frames of many protocols.
# tests/capture/live.sh measures live captures.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/steps.sh

[[ $# -ge 1 && -f $1 && ${2-5} =~ ^[1-9][0-9]*$ ]] || misused
file=$(realpath "$1") turns=${2:-5}
scripts/install-deps.sh build test
build release zxcapture
zxcapture=$PWD/build/release/tools/zxcapture/zxcapture
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mapfile -t copies < <(yes "$file" | head -n 60)
mergecap -a -F nsecpcap -w "$scratch/all" "${copies[@]}"
# Datagrams of seven packets of a transport stream.
datagrams=1000000
python3 - $datagrams >"$scratch/stream" <<'EOF'
import struct, sys
out = sys.stdout.buffer
out.write(struct.pack('<IHHiIII', 0xA1B23C4D, 2, 4, 0, 0, 262144, 1))
ethernet = bytes.fromhex('01005e010101 020000000001 0800')
ip = bytes.fromhex('4500 0540 0000 4000 4011 0000 0a000001 ef010101')
udp = struct.pack('>HHHH', 5000, 1234, 1324, 0)
for n in range(int(sys.argv[1])):
    payload = b''.join(bytes([0x47, 1, 0, 0x10 | (7 * n + k) % 16]) + bytes(184) for k in range(7))
    frame = ethernet + ip + udp + payload
    out.write(struct.pack('<IIII', 1700000000 + n // 10000, n % 10000 * 100000, len(frame), len(frame)))
    out.write(frame)
EOF

# measure NAME COMMAND...: prints the name and the seconds of processor time.
measure() {
    local TIMEFORMAT='%U %S' times
    times=$({ time "${@:2}" >"$scratch/out" 2>"$scratch/errors"; } 2>&1)
    awk -v name="$1" '{ printf "%s,%.3f\n", name, $1 + $2 }' <<<"$times"
}

for ((turn = 0; turn < turns; ++turn)); do
    measure 'lines, zxcapture' "$zxcapture" -r "$scratch/all"
    measure 'lines, tcpdump' tcpdump -nr "$scratch/all"
    measure 'verbose lines, zxcapture' "$zxcapture" -vr "$scratch/all"
    measure 'verbose lines, tcpdump' tcpdump -nvr "$scratch/all"
    measure 'one file: JSON, zxcapture' "$zxcapture" --json -r "$file"
    measure 'one file: JSON, tshark' tshark -nr "$file" -T json
    measure 'counts, zxcapture' "$zxcapture" -qr "$scratch/all"
    measure 'streams, zxcapture' "$zxcapture" --streams -r "$scratch/all"
    measure 'connections, zxcapture' "$zxcapture" --conversations -r "$scratch/all"
    measure "$datagrams datagrams: counts, zxcapture" "$zxcapture" -qr "$scratch/stream"
    measure "$datagrams datagrams: streams, zxcapture" "$zxcapture" --streams -r "$scratch/stream"
done | awk -F, '
    { name = $1 "," $2; if (!(name in lowest)) order[++count] = name }
    !(name in lowest) || $3 < lowest[name] { lowest[name] = $3 }
    END { for (i = 1; i <= count; ++i) printf "%-45s %8.3f s\n", order[i], lowest[order[i]] }'
