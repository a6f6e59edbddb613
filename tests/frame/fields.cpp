// frame_fields FILE: prints how the decoder reads every frame of a capture file, one line for each
// frame, in the notation of "tshark -T fields" and in the order of captures.sh.
#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
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
    return inet_ntoa({network_order});
}

// The kinds of all options, or the lengths of those that have one.
std::string options(const tcp_view& tcp, bool lengths) {
    std::string list;
    for (uint32_t i = 0; i < tcp.option_count; ++i) {
        const tcp_option& option = tcp.options[i];
        if (!lengths || option.len != 0) {
            list += list.empty() ? "" : ",";
            list += std::to_string(lengths ? option.len : option.kind);
        }
    }
    return list;
}

struct Columns {
    const Columns& operator<<(const std::string& text) const {
        std::printf("\t%s", text.c_str());
        return *this;
    }
    const Columns& operator<<(unsigned number) const { return *this << std::to_string(number); }
};

// Fields of headers that the frame does not have are left over from earlier frames. judge.awk
// decides from tshark's columns which headers to compare.
void print(const ether_ctt& r) {
    const auto& [arp, ip, tcp, udp] = std::tie(r.arp, r.ipv4, r.tcp, r.udp);
    const Columns line;
    line << mac(r.dest_mac) << mac(r.source_mac) << hex(r.ether_type, 4);
    line << arp.hardware_type << hex(arp.protocol_type, 4) << arp.hardware_len << arp.protocol_len
         << arp.operation << mac(arp.sender_mac) << address(arp.sender_ip) << mac(arp.target_mac)
         << address(arp.target_ip);
    line << ip.version << 4U * ip.header_len << hex(ip.tos, 2) << ip.total_len << hex(ip.id, 4)
         << ip.frag_off << ip.ttl << ip.protocol << hex(ip.check, 4) << address(ip.saddr)
         << address(ip.daddr);
    line << tcp.source << tcp.dest << tcp.seq << tcp.ack_seq << 4U * tcp.doff << tcp.urg << tcp.ack
         << tcp.psh << tcp.rst << tcp.syn << tcp.fin << tcp.window << hex(tcp.check, 4)
         << tcp.urg_ptr << r.data_len << options(tcp, false) << options(tcp, true);
    line << udp.source << udp.dest << udp.len << hex(udp.check, 4) << r.data_len;
}

}  // namespace

int main(int argc, char** argv) {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const capture = argc == 2 ? pcap_open_offline(argv[1], error) : nullptr;
    if (capture == nullptr) {
        return 2;
    }
    zx::test::LogCapture log;
    const auto record = std::make_unique<ether_ctt>();
    const auto dumped = std::make_unique<ether_ctt>();  // the same, decoded with a dump
    pcap_pkthdr* header = nullptr;
    const uint8_t* bytes = nullptr;
    int result = 0;
    for (unsigned number = 1; (result = pcap_next_ex(capture, &header, &bytes)) == 1; ++number) {
        // The frame is on the heap and no larger than promised, so that a sanitizer sees an access
        // beyond.
        std::vector<uint8_t> frame(std::max<std::size_t>(header->caplen, ZXFRAME_READABLE));
        std::copy_n(bytes, header->caplen, frame.begin());
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
        print(*record);
        std::printf("\n");
    }
    pcap_close(capture);
    return result == PCAP_ERROR_BREAK ? 0 : 1;
}
