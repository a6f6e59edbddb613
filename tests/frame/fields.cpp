// frame_fields [FILE]: what the decoder makes of every frame of a capture file, one line a frame,
// in columns with the names and the notation of "tshark -T fields". Without FILE only the names.
#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.hpp"
#include "zxframe.h"

namespace {

std::string hex(unsigned value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

std::string mac(const uint8_t (&bytes)[ZXFRAME_MAC_SIZE]) {
    char text[ZXFRAME_MAC_TEXT_SIZE];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text;
}

std::string address(uint32_t network_order) {
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &network_order, text, sizeof text);
}

void append(std::string& list, unsigned value) {
    if (!list.empty()) {
        list += ',';
    }
    list += std::to_string(value);
}

// The kinds of all options, or the length bytes of those that have one.
std::string options(const tcp_view& tcp, bool lengths) {
    std::string list;
    for (uint32_t i = 0; i < tcp.option_count; ++i) {
        if (!lengths || tcp.options[i].len != 0) {
            append(list, lengths ? tcp.options[i].len : tcp.options[i].kind);
        }
    }
    return list;
}

// What does not belong to the frame is left over from earlier ones: the names of the headers that
// are compared come from the other reader.
std::vector<std::pair<const char*, std::string>> columns(const ether_ctt& r) {
    return {
        {"eth.dst", mac(r.dest_mac)},
        {"eth.src", mac(r.source_mac)},
        {"eth.type", hex(r.ether_type, 4)},
        {"arp.hw.type", std::to_string(r.arp.hardware_type)},
        {"arp.proto.type", hex(r.arp.protocol_type, 4)},
        {"arp.hw.size", std::to_string(r.arp.hardware_len)},
        {"arp.proto.size", std::to_string(r.arp.protocol_len)},
        {"arp.opcode", std::to_string(r.arp.operation)},
        {"arp.src.hw_mac", mac(r.arp.sender_mac)},
        {"arp.src.proto_ipv4", address(r.arp.sender_ip)},
        {"arp.dst.hw_mac", mac(r.arp.target_mac)},
        {"arp.dst.proto_ipv4", address(r.arp.target_ip)},
        {"ip.version", std::to_string(r.ipv4.version)},
        {"ip.hdr_len", std::to_string(4 * r.ipv4.header_len)},
        {"ip.dsfield", hex(r.ipv4.tos, 2)},
        {"ip.len", std::to_string(r.ipv4.total_len)},
        {"ip.id", hex(r.ipv4.id, 4)},
        {"ip.frag_offset", std::to_string(r.ipv4.frag_off)},
        {"ip.ttl", std::to_string(r.ipv4.ttl)},
        {"ip.proto", std::to_string(r.ipv4.protocol)},
        {"ip.checksum", hex(r.ipv4.check, 4)},
        {"ip.src", address(r.ipv4.saddr)},
        {"ip.dst", address(r.ipv4.daddr)},
        {"tcp.srcport", std::to_string(r.tcp.source)},
        {"tcp.dstport", std::to_string(r.tcp.dest)},
        {"tcp.seq_raw", std::to_string(r.tcp.seq)},
        {"tcp.ack_raw", std::to_string(r.tcp.ack_seq)},
        {"tcp.hdr_len", std::to_string(4 * r.tcp.doff)},
        {"tcp.flags.urg", std::to_string(r.tcp.urg)},
        {"tcp.flags.ack", std::to_string(r.tcp.ack)},
        {"tcp.flags.push", std::to_string(r.tcp.psh)},
        {"tcp.flags.reset", std::to_string(r.tcp.rst)},
        {"tcp.flags.syn", std::to_string(r.tcp.syn)},
        {"tcp.flags.fin", std::to_string(r.tcp.fin)},
        {"tcp.window_size_value", std::to_string(r.tcp.window)},
        {"tcp.checksum", hex(r.tcp.check, 4)},
        {"tcp.urgent_pointer", std::to_string(r.tcp.urg_ptr)},
        {"tcp.len", std::to_string(r.data_len)},
        {"tcp.option_kind", options(r.tcp, false)},
        {"tcp.option_len", options(r.tcp, true)},
        {"udp.srcport", std::to_string(r.udp.source)},
        {"udp.dstport", std::to_string(r.udp.dest)},
        {"udp.length", std::to_string(r.udp.len)},
        {"udp.checksum", hex(r.udp.check, 4)},
        {"data.len", std::to_string(r.data_len)},
    };
}

// On the heap and no larger than promised, so that a sanitizer sees the first byte too many.
std::vector<uint8_t> frame_of(const pcap_pkthdr& header, const uint8_t* bytes) {
    std::vector<uint8_t> frame(std::max<std::size_t>(header.caplen, ZXFRAME_READABLE));
    std::copy_n(bytes, header.caplen, frame.begin());
    return frame;
}

}  // namespace

int main(int argc, char** argv) {
    std::printf("frame.number\tframe.cap_len");
    const auto record = std::make_unique<ether_ctt>();
    for (const auto& [name, text] : columns(*record)) {
        std::printf("\t%s", name);
    }
    std::printf("\n");
    if (argc < 2) {
        return 0;
    }
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const capture = pcap_open_offline(argv[1], error);
    if (capture == nullptr) {
        std::fprintf(stderr, "%s\n", error);
        return 1;
    }
    zx::test::LogCapture log;
    const auto dumped = std::make_unique<ether_ctt>();  // the same, on the way with the dump
    pcap_pkthdr* header = nullptr;
    const uint8_t* bytes = nullptr;
    int result = 0;
    for (unsigned number = 1; (result = pcap_next_ex(capture, &header, &bytes)) == 1; ++number) {
        const std::vector<uint8_t> frame = frame_of(*header, bytes);
        for (ether_ctt* const r : {record.get(), dumped.get()}) {
            r->tcp.option_count = 0;
            r->print_flag = r == dumped.get() ? 1 : 0;
            zxframe_api_doFrame(r, frame.data());
        }
        log.take();
        log.take_dumps();
        dumped->print_flag = 0;
        if (std::memcmp(record.get(), dumped.get(), sizeof *record) != 0) {
            std::fprintf(stderr, "frame %u is decoded otherwise with a dump\n", number);
            return 1;
        }
        std::printf("%u\t%u", number, header->caplen);
        for (const auto& [name, text] : columns(*record)) {
            std::printf("\t%s", text.c_str());
        }
        std::printf("\n");
    }
    pcap_close(capture);
    return result == PCAP_ERROR_BREAK ? 0 : 1;
}
