#!/usr/bin/env bash
# forms.sh ZXCAPTURE FOLDER: the forms of the time and the bytes of a frame are those of tcpdump, for the
# captures in FOLDER and, of IP on Ethernet, in $ZX_CAPTURES. Exit 77: skipped, there is no tcpdump.
set -euo pipefail
command -v tcpdump >/dev/null || { echo "skipped: no tcpdump"; exit 77; }
export TZ=UTC

compare() {
    local file=$1 words=$2 pattern=$3 option=$4
    diff <(tcpdump -nq "$option" -r "$file" 2>/dev/null | grep -aP "$pattern" | cut -d' ' -f "$words") \
        <("$zxcapture" "$option" -r "$file" 2>/dev/null | grep -aP "$pattern" | cut -d' ' -f "$words")
}

zxcapture=$1 compared=0
files=("$2"/*.pcap)
[[ -d ${ZX_CAPTURES-} ]] && files+=("$ZX_CAPTURES"/{igmp,tcp}/*.pcap)
for file in "${files[@]}"; do
    compare "$file" 1 '^\d' -tt
    compare "$file" 1-2 '^[ -]\d' -ttt  # a blank or a sign comes first
    compare "$file" 1-2 '^\d' -tttt
    compare "$file" 1-2 '^[ -]\d' -ttttt
    compare "$file" 1- '^\t0x' -X
    compare "$file" 1- '^\t0x' -XX
    compared=$((compared + 1))
done
echo "$compared files compared"
[[ $compared -ge 4 ]]
