# shellcheck shell=bash
# For sourcing: the captures of a folder, merged into a file for each type of link.

# merge_by_link WORK FOLDER: writes WORK/TYPE.pcap, where TYPE is the number that tshark gives the link
# type. A frame has the same number there for all programs.
merge_by_link() {
    local work=$1
    shift
    find "$1" -name '*.pcap*' -print0 | sort -z | xargs -0 capinfos -Trc >"$work/files" 2>/dev/null || true
    cut -f1 "$work/files" | tr '\n' '\0' | xargs -0 mergecap -a -F pcapng -w "$work/merged"
    local type name
    for type in 1:ether 7:rawip 15:null 25:linux-sll 210:linux-sll2; do
        name=${type#*:} type=${type%:*}
        tshark -r "$work/merged" -Y "frame.encap_type == $type" -w "$work/packets" 2>/dev/null
        editcap -F nsecpcap -T "$name" "$work/packets" "$work/$type.pcap"
        # tshark shows bytes after the snapshot length of the file's header, which libpcap cuts off.
        # So this raises the snapshot length.
        printf '\xff\xff\x03\x00' | dd of="$work/$type.pcap" bs=1 seek=16 conv=notrunc status=none
    done
    rm "$work/packets" "$work/merged"
}
