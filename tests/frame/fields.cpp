// frame_fields [FILE]: what the decoder makes of every frame of a capture file, one line a frame,
// in columns with the names and the notation of "tshark -T fields". Without FILE only the names.
#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxframe.h"

namespace {

enum class Layer { ether, arp, ipv4, tcp, udp };

struct Column {
    const char* name;
    Layer layer;
    std::string (*text)(const ether_ctt&);
};

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

// The big-endian numbers of `size` bytes at `at`, and every 8 bytes behind it (the next block of a
// selective acknowledgment), in the values of all options of a kind.
std::string numbers(const tcp_view& tcp, unsigned kind, unsigned at, unsigned size) {
    std::string list;
    for (const tcp_option& option : std::vector(tcp.options, tcp.options + tcp.option_count)) {
        for (unsigned i = at; option.kind == kind && i + size + 2 <= option.len; i += 8) {
            unsigned value = 0;
            for (unsigned byte = 0; byte < size; ++byte) {
                value = value << 8U | option.val[i + byte];
            }
            append(list, value);
        }
    }
    return list;
}

#define ZX_COLUMN(name, layer, text)                                               \
    {                                                                              \
        name, Layer::layer, [](const ether_ctt& r) -> std::string { return text; } \
    }

const Column kColumns[] = {
    ZX_COLUMN("eth.dst", ether, mac(r.dest_mac)),
    ZX_COLUMN("eth.src", ether, mac(r.source_mac)),
    ZX_COLUMN("eth.type", ether, hex(r.ether_type, 4)),
    ZX_COLUMN("arp.hw.type", arp, std::to_string(r.arp.hardware_type)),
    ZX_COLUMN("arp.proto.type", arp, hex(r.arp.protocol_type, 4)),
    ZX_COLUMN("arp.hw.size", arp, std::to_string(r.arp.hardware_len)),
    ZX_COLUMN("arp.proto.size", arp, std::to_string(r.arp.protocol_len)),
    ZX_COLUMN("arp.opcode", arp, std::to_string(r.arp.operation)),
    ZX_COLUMN("arp.src.hw_mac", arp, mac(r.arp.sender_mac)),
    ZX_COLUMN("arp.src.proto_ipv4", arp, address(r.arp.sender_ip)),
    ZX_COLUMN("arp.dst.hw_mac", arp, mac(r.arp.target_mac)),
    ZX_COLUMN("arp.dst.proto_ipv4", arp, address(r.arp.target_ip)),
    ZX_COLUMN("ip.version", ipv4, std::to_string(r.ipv4.version)),
    ZX_COLUMN("ip.hdr_len", ipv4, std::to_string(4 * r.ipv4.header_len)),
    ZX_COLUMN("ip.dsfield", ipv4, hex(r.ipv4.tos, 2)),
    ZX_COLUMN("ip.len", ipv4, std::to_string(r.ipv4.total_len)),
    ZX_COLUMN("ip.id", ipv4, hex(r.ipv4.id, 4)),
    ZX_COLUMN("ip.frag_offset", ipv4, std::to_string(r.ipv4.frag_off)),
    ZX_COLUMN("ip.ttl", ipv4, std::to_string(r.ipv4.ttl)),
    ZX_COLUMN("ip.proto", ipv4, std::to_string(r.ipv4.protocol)),
    ZX_COLUMN("ip.checksum", ipv4, hex(r.ipv4.check, 4)),
    ZX_COLUMN("ip.src", ipv4, address(r.ipv4.saddr)),
    ZX_COLUMN("ip.dst", ipv4, address(r.ipv4.daddr)),
    ZX_COLUMN("tcp.srcport", tcp, std::to_string(r.tcp.source)),
    ZX_COLUMN("tcp.dstport", tcp, std::to_string(r.tcp.dest)),
    ZX_COLUMN("tcp.seq_raw", tcp, std::to_string(r.tcp.seq)),
    ZX_COLUMN("tcp.ack_raw", tcp, std::to_string(r.tcp.ack_seq)),
    ZX_COLUMN("tcp.hdr_len", tcp, std::to_string(4 * r.tcp.doff)),
    ZX_COLUMN("tcp.flags.urg", tcp, std::to_string(r.tcp.urg)),
    ZX_COLUMN("tcp.flags.ack", tcp, std::to_string(r.tcp.ack)),
    ZX_COLUMN("tcp.flags.push", tcp, std::to_string(r.tcp.psh)),
    ZX_COLUMN("tcp.flags.reset", tcp, std::to_string(r.tcp.rst)),
    ZX_COLUMN("tcp.flags.syn", tcp, std::to_string(r.tcp.syn)),
    ZX_COLUMN("tcp.flags.fin", tcp, std::to_string(r.tcp.fin)),
    ZX_COLUMN("tcp.window_size_value", tcp, std::to_string(r.tcp.window)),
    ZX_COLUMN("tcp.checksum", tcp, hex(r.tcp.check, 4)),
    ZX_COLUMN("tcp.urgent_pointer", tcp, std::to_string(r.tcp.urg_ptr)),
    ZX_COLUMN("tcp.len", tcp, std::to_string(r.data_len)),
    ZX_COLUMN("tcp.option_kind", tcp, options(r.tcp, false)),
    ZX_COLUMN("tcp.option_len", tcp, options(r.tcp, true)),
    ZX_COLUMN("tcp.options.mss_val", tcp, numbers(r.tcp, 2, 0, 2)),
    ZX_COLUMN("tcp.options.wscale.shift", tcp, numbers(r.tcp, 3, 0, 1)),
    ZX_COLUMN("tcp.options.sack_le", tcp, numbers(r.tcp, 5, 0, 4)),
    ZX_COLUMN("tcp.options.sack_re", tcp, numbers(r.tcp, 5, 4, 4)),
    ZX_COLUMN("tcp.options.timestamp.tsval", tcp, numbers(r.tcp, 8, 0, 4)),
    ZX_COLUMN("tcp.options.timestamp.tsecr", tcp, numbers(r.tcp, 8, 4, 4)),
    ZX_COLUMN("udp.srcport", udp, std::to_string(r.udp.source)),
    ZX_COLUMN("udp.dstport", udp, std::to_string(r.udp.dest)),
    ZX_COLUMN("udp.length", udp, std::to_string(r.udp.len)),
    ZX_COLUMN("udp.checksum", udp, hex(r.udp.check, 4)),
    ZX_COLUMN("data.len", udp, std::to_string(r.data_len)),
};

bool decoded(const ether_ctt& record, Layer layer) {
    const bool ipv4 = record.ether_type == 0x0800;
    return layer == Layer::ether || (layer == Layer::arp && record.ether_type == 0x0806) ||
           (layer == Layer::ipv4 && ipv4) ||
           (layer == Layer::tcp && ipv4 && record.ipv4.protocol == 6) ||
           (layer == Layer::udp && ipv4 && record.ipv4.protocol == 17);
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
    for (const Column& column : kColumns) {
        std::printf("\t%s", column.name);
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
    const auto record = std::make_unique<ether_ctt>();
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
        for (const Column& column : kColumns) {
            std::printf("\t%s", decoded(*record, column.layer) ? column.text(*record).c_str() : "");
        }
        std::printf("\n");
    }
    pcap_close(capture);
    return result == PCAP_ERROR_BREAK ? 0 : 1;
}
