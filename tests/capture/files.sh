#!/usr/bin/env bash
# files.sh ZXCAPTURE DATA
#
# Writes pcapng and rings of files from the frames in DATA and in $ZX_CAPTURES. capinfos and tshark
# must read them, and find the same frames as in the file that was read. Exit 77: skipped, because a
# program is not installed.
set -euo pipefail
capture=$1
folders=("$2" ${ZX_CAPTURES:+"$ZX_CAPTURES"})
for program in capinfos mergecap tshark; do
    command -v "$program" >/dev/null || { echo "skipped: no $program"; exit 77; }
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TZ=UTC
fail() { echo "$*"; exit 1; }

# frames FILE...: times, lengths and the bytes of all frames.
frames() { for file in "$@"; do tshark -r "$file" -t e -x -o gui.column.format:T,%t,L,%L 2>/dev/null; done; }
# same FILE FILE...: the frames of the first are those of the others.
same() {
    cmp <(frames "$1") <(frames "${@:2}") || fail "other frames in ${*:2} than in $1"
}
count() { capinfos -Tcr "$@" | cut -f2 | paste -sd,; }

mapfile -t files < <(find "${folders[@]}" -name '*.pcap*' | sort)
readable=0
for file in "${files[@]}"; do  # damaged ones, too
    rm -f "$work/a.pcapng"
    "$capture" -r "$file" -w "$work/a.pcapng" -q >/dev/null 2>&1 || [[ -e $work/a.pcapng ]] || continue
    "$capture" -r "$file" -w "$work/a.pcap" -q >/dev/null 2>&1 || true
    "$capture" -r "$work/a.pcapng" -w "$work/b.pcap" -q >/dev/null
    cmp "$work/a.pcap" "$work/b.pcap" || fail "pcapng of $file reads back otherwise"
    readable=$((readable + 1))
done
source "${0%/*}/merged.sh"
merge_captures "$work" "${folders[@]}"
for file in "$work"/merged-*; do
    "$capture" -r "$file" -w "$work/a.pcapng" -q >/dev/null
    same "$file" "$work/a.pcapng"
done
echo "$readable files as pcapng, and $(echo "$work"/merged-* | wc -w) of them with tshark"
((readable >= 5))
facts=$(capinfos "$work/a.pcapng")
[[ $facts =~ File\ timestamp\ precision:\ *nanoseconds\ \(9\) && $facts == *'Capture application: zxcapture'* ]]

# Frames of an hour and ten minutes, with enough of them for 3 MiB.
python3 - "$work/all" <<'END'
import struct, sys
with open(sys.argv[1], "wb") as file:
    file.write(struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 262144, 1))
    for number in range(3000):
        data = b"\2" * 12 + b"\x88\xb5" + struct.pack(">I", number) + bytes(1000 + number % 7)
        time = 1700000000 + number * 4200 // 3000
        file.write(struct.pack("<IIII", time, number, len(data), len(data)) + data)
END
cd "$work"
"$capture" -q -r all -w size -C 1 >/dev/null
[[ $(echo size*) == "size size1 size2" ]] || fail "other files: $(echo size*)"
same all size size1 size2
"$capture" -q -r all -w ring.pcapng -C 1 -W 2 >/dev/null
[[ $(echo ring*) == "ring.pcapng0 ring.pcapng1" ]] || fail "other files: $(echo ring*)"
"$capture" -q -r all -w wide --pcapng -C 1 -W 12 >/dev/null
[[ $(echo wide*) == "wide00 wide01 wide02 wide03" ]] || fail "other files: $(echo wide*)"
# In the ring, the last two files have replaced the others.
same wide02 ring.pcapng0
same wide03 ring.pcapng1
for file in size* ring* wide*; do
    (($(stat -c %s "$file") <= 1 << 20)) || fail "$file is too large"
done

"$capture" -q -r all -w 'time-%H%M%S' -G 1200 >/dev/null
[[ $(echo time-*) == "time-221320 time-223320 time-225320 time-231320" ]] || fail "other files: $(echo time-*)"
same all time-*
[[ $(count time-*) == 858,857,857,428 ]] || fail "other counts: $(count time-*)"
"$capture" -q -r all -w 'hour-%H' -G 1200 >/dev/null  # while the name stays the same, so does the file
[[ $(echo hour-*) == "hour-22 hour-23" ]] || fail "other files: $(echo hour-*)"
same all hour-*
"$capture" -q -r all -w 'end-%H%M' -G 1200 -W 2 >counts
[[ $(echo end-*) == "end-2213 end-2233" && $(<counts) == *" 1715 passed"* ]] || fail "other end: $(<counts)"
"$capture" -q -r all -w 'both-%H%M' -G 2400 -C 1 >/dev/null
[[ $(echo both-*) == "both-2213 both-22131 both-2253 both-22531" ]] || fail "other files: $(echo both-*)"
same all both-*

# A reader that is slow gets everything.
"$capture" -q -r all -w - | (sleep 0.3; cat) | cmp - <("$capture" -r all -w - 2>/dev/null)

# While a pipe pauses, also within a frame, an object a second comes.
objects() { "$capture" -r "$1" --streams --json 2>/dev/null | wc -l; }
head -c 2093 all >two  # frames
paused=$(objects <(head -c 1500 two; sleep 3.2; tail -c +1501 two))
((paused > $(objects two))) || fail "no objects while a pipe pauses: $paused"

# A reader that has stopped reading does not hold up the end.
mkfifo stuck
exec 3<>stuck
for writing in "" "-w -"; do
    "$capture" -r all $writing >stuck 2>/dev/null &
    sleep 0.5
    kill -HUP $!
    timeout 10 tail --pid=$! -f /dev/null || { kill -KILL $!; fail "does not end: $writing"; }
    wait $!
done
