// frame_builders FILE: writes frames of every builder into a capture file.
#include <pcap/pcap.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "log_capture.hpp"
#include "zxframe.h"

namespace {

constexpr char kOurMac[] = "02:00:00:00:00:01", kPeerMac[] = "02:00:00:00:00:02";
constexpr char kOurIp[] = "10.99.0.1", kPeerIp[] = "10.99.0.2";

pcap_dumper_t* g_dumper;
uint8_t g_frame[2048];

void add(int32_t length) {
    pcap_pkthdr header{};
    header.caplen = header.len = static_cast<bpf_u_int32>(length);
    pcap_dump(reinterpret_cast<u_char*>(g_dumper), &header, g_frame);
}

// A new record with a payload, which has decoded no frame.
std::unique_ptr<ether_ctt> record_with(std::size_t size) {
    auto record = std::make_unique<ether_ctt>();
    record->data_len = static_cast<uint16_t>(size);
    for (std::size_t i = 0; i < size; ++i) {
        record->data[i] = static_cast<uint8_t>(3 * i + 1);
    }
    return record;
}

void add_tcp(uint32_t flags, std::size_t size, const std::vector<tcp_option>& options = {},
             uint32_t option_len = 0) {
    const auto record = record_with(size);
    const auto count = static_cast<uint32_t>(options.size());
    zxbuildtcp_ctt request{kPeerMac,    kOurMac,   kOurIp, kPeerIp, 40000, 443,
                           4294967290U, 305419896, flags,  {},      count, option_len};
    std::copy(options.begin(), options.end(), request.options);
    zxframe_api_buildTcp(record.get(), &request, g_frame);
    if (size >= 20) {  // the IPv4 total length leaves out the 20 bytes of the TCP header
        std::copy_n(record->data, size, &g_frame[54 + option_len]);
        add(static_cast<int32_t>(54 + option_len + size));
    }
    add(zxframe_api_finishTcp(g_frame, record->data, static_cast<uint32_t>(size)));
}

// Acknowledges the segment that was built last, and then sends a payload of its own.
void add_answers(std::size_t size) {
    const auto record = record_with(size);
    zxframe_api_doFrame(record.get(), g_frame);
    add(zxframe_api_buildTcpAck(record.get(), g_frame));
    zxframe_api_doFrame(record.get(), g_frame);
    record->data_len = static_cast<uint16_t>(size);
    record->tcp.psh = 1;
    const int32_t length = zxframe_api_buildTcpData(record.get(), g_frame);
    std::copy_n(record->data, size, &g_frame[54]);
    add(length);
}

void add_udp(std::size_t size, uint8_t pad) {
    const auto record = record_with(size);
    record->data[size] = pad;
    ether_pkt request{
        {}, "02:00:00:00:00:01", "02:00:00:00:00:02", "10.99.0.1", "10.99.0.2", 5004, 65000};
    const int32_t length = zxframe_api_buildUdp(record.get(), &request, g_frame);
    std::copy_n(record->data, size, &g_frame[42]);
    add(length);
}

void add_igmp(uint32_t version, uint32_t action, uint16_t sources) {
    const auto record = record_with(0);
    igmp_req request{"01:00:5e:01:02:03",   kOurMac, kOurIp,
                     "239.1.2.3",           version, action,
                     sources > 0 ? 1U : 0U, sources, {"192.0.2.1", "192.0.2.2"}};
    add(zxframe_api_buildIgmp(record.get(), &request, g_frame));
}

void add_all() {
    add_tcp(ZXFRAME_TCP_SYN, 0,
            {{2, 4, {0x05, 0xb4}},
             {4, 2, {}},
             {8, 10, {0, 0, 1, 2, 0, 0, 0, 9}},
             {1, 0, {}},
             {3, 3, {7}}},
            20);
    add_tcp(ZXFRAME_TCP_ACK, 1460,
            {{1, 0, {}}, {1, 0, {}}, {5, 10, {0, 0, 0, 16, 0, 0, 1, 0}}, {28, 4, {0x80, 5}}}, 16);
    add_tcp(ZXFRAME_TCP_RST, 0);
    add_tcp(ZXFRAME_TCP_URG | ZXFRAME_TCP_FIN, 3);
    for (const std::size_t size : {0U, 1U, 100U, 1459U}) {
        add_tcp(ZXFRAME_TCP_ACK | ZXFRAME_TCP_PSH, size);
        add_answers(size);
        add_udp(size, 0);
    }
    add_udp(100, 0xff);
    add_udp(101, 0xff);  // the byte after an odd payload counts, too
    add(zxframe_api_buildArp(record_with(0).get(), kOurMac, kOurIp, kPeerIp, g_frame));
    constexpr std::pair<uint32_t, uint32_t> kIgmp[] = {
        {1, ZXFRAME_IGMP_QUERY}, {1, ZXFRAME_IGMP_JOIN},  {2, ZXFRAME_IGMP_JOIN},
        {2, ZXFRAME_IGMP_LEAVE}, {3, ZXFRAME_IGMP_QUERY}, {3, ZXFRAME_IGMP_JOIN},
        {3, ZXFRAME_IGMP_LEAVE}};
    for (const auto& [version, action] : kIgmp) {
        add_igmp(version, action, 0);
    }
    // The total length leaves out the sources, so receivers see the report cut.
    add_igmp(3, ZXFRAME_IGMP_JOIN, 2);
}

}  // namespace

int main(int argc, char** argv) {
    pcap_t* const capture = pcap_open_dead(DLT_EN10MB, 65535);
    g_dumper = argc == 2 ? pcap_dump_open(capture, argv[1]) : nullptr;
    if (g_dumper == nullptr) {
        return 2;
    }
    const zx::test::LogCapture log;
    add_all();
    pcap_dump_close(g_dumper);
    pcap_close(capture);
    return 0;
}
