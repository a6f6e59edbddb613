# Compares the decoder's columns with those of tshark, which come first in each line. Only
# well-formed headers count; tshark and the lengths decide that, never the decoder. The first file
# lists the captures that the lines come from, with their numbers of frames.
BEGIN { FS = "\t" }

function end_of_file() {
    if (current > 0)
        printf "%s: %d frames, compared: %d Ethernet, %d ARP, %d IPv4, %d TCP, %d UDP headers\n",
            file[current], number, count["eth"], count["arp"], count["ip"], count["tcp"], count["udp"]
    split("", count)
    number = 0
}

# Lists kinds and lengths of the options up to the end of the list, although the decoder reads on.
# Stops at the first kind that the decoder does not know, because that ends the decoder's list.
function options(kinds, lengths, from_decoder,    kind, length_of, n, i, used, list) {
    n = split(kinds, kind, ",")
    split(lengths, length_of, ",")
    for (i = 1; i <= n && kind[i - 1] != "0"; ++i) {
        if (!from_decoder && kind[i] > 10 && kind[i] != 28) break
        list = list " " kind[i] (kind[i] > 1 ? ":" length_of[++used] : "")
    }
    return list
}

FNR == NR { file[++files] = $1; size[files] = $2; next }
FNR == 1 {
    for (i = 1; !($i in at); ++i) at[$i] = i  # the decoder's names follow
    for (first = i; i <= NF; ++i) column[i] = $i
    columns = NF
    next
}
{
    while (number == size[current]) { end_of_file(); ++current }
    ++number
    ++lines
    split("", tshark)
    for (name in at) {
        tshark[name] = $at[name]
        if (name !~ /^tcp\.option|^_ws/) sub(/,.*/, "", tshark[name])  # of the outermost header
    }
    captured = tshark["frame.cap_len"] - 14
    total = tshark["ip.len"] + 0
    ip_size = tshark["ip.hdr_len"] + 0
    tcp_size = tshark["tcp.hdr_len"] + 0
    udp_size = tshark["udp.length"] + 0  # includes the payload

    # The headers that are present. They must follow each other with nothing in between.
    split("", good)
    good["frame"] = 1
    good["eth"] = captured >= 0
    good["arp"] = tshark["frame.protocols"] ~ /^eth:ethertype:arp/ && captured >= 28 &&
        tshark["eth.type"] == "0x0806" &&  # RARP is not decoded
        tshark["arp.hw.type"] " " tshark["arp.proto.type"] == "1 0x0800" &&
        tshark["arp.hw.size"] " " tshark["arp.proto.size"] == "6 4"
    good["ip"] = tshark["frame.protocols"] ~ /^eth:ethertype:ip(:|$)/ && total >= ip_size &&
        tshark["ip.version"] == 4 && ip_size >= 20 && captured >= ip_size
    transport = good["ip"] && tshark["ip.frag_offset"] == 0 && tshark["_ws.malformed"] == ""
    good["tcp"] = transport && tshark["frame.protocols"] ~ /^eth:ethertype:ip:tcp/ &&
        tcp_size >= 20 && total >= ip_size + tcp_size && captured >= ip_size + tcp_size
    good["udp"] = transport && tshark["frame.protocols"] ~ /^eth:ethertype:ip:udp/ &&
        udp_size >= 8 && total >= ip_size + 8 && captured >= ip_size + 8

    # Cases in which tshark shows something other than the field: the length of IEEE 802.3, the end
    # of a source route, no payload length for a fragment, and only the captured bytes of a payload.
    if (tshark["eth.len"] != "") tshark["eth.type"] = sprintf("0x%04x", tshark["eth.len"])
    if (tshark["ip.cur_rt"] != "") tshark["ip.dst"] = tshark["ip.cur_rt"]
    unless["tcp.len"] = tshark["ip.flags.mf"] != 0 || tshark["frame.len"] - 14 < total
    unless["data.len"] = !good["udp"] || captured < total || total < ip_size + udp_size
    if (tshark["data.len"] == "") tshark["data.len"] = 0

    tshark["tcp.option_kind"] = options(tshark["tcp.option_kind"], tshark["tcp.option_len"], 0)
    unless["tcp.option_kind"] = tshark["_ws.expert.message"] ~ /option goes past end of options/
    unless["tcp.option_len"] = 1  # compared with the kinds

    for (i = first; i <= columns; ++i) {
        name = column[i]
        layer = name
        sub(/\..*/, "", layer)
        if ((layer in good && !good[layer]) || unless[name]) continue
        decoded = name == "tcp.option_kind" ? options($i, $(i + 1), 1) : $i
        if (decoded != tshark[name]) {
            printf "%s frame %d: %s is %s, but %s for the decoder\n",
                file[current], number, name, tshark[name], decoded
            ++wrong
        }
        fields += layer != "frame"
    }
    for (layer in good) count[layer] += good[layer]
    frames += good["arp"] || good["tcp"] || good["udp"]
}
END {
    end_of_file()
    printf "%d files, %d frames; %d whole frames and %d fields compared, %d differ\n",
        files, lines, frames, fields, wrong
    exit wrong > 0 || frames < min_frames || fields < min_fields
}
