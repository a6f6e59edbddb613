// frame_builders FILE: writes frames of every builder into a capture file, and prints what tshark
// must read in them, one field a line behind the number of the frame: what went in, and a verdict
// on each checksum (1 good, 0 bad).
#include <pcap/pcap.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxframe.h"

namespace {

using std::to_string;
using Frame = std::vector<uint8_t>;

// Expectations are words "field=value"; of one field the last one counts.
const std::string kIpv4 =
    "eth.src=02:00:00:00:00:01 eth.dst=02:00:00:00:00:02 eth.type=0x0800 ip.src=10.99.0.1 "
    "ip.dst=10.99.0.2 ip.ttl=64 ip.flags.df=1 ip.id=0x1361 ip.checksum.status=1 _ws.malformed= ";
const std::string kTcp =
    kIpv4 +
    "ip.proto=6 tcp.srcport=40000 tcp.dstport=443 tcp.seq_raw=4294967290 tcp.ack_raw=305419896 "
    "tcp.window_size_value=64240 tcp.urgent_pointer=0 tcp.checksum.status=1 tcp.options= "
    "tcp.flags.urg=0 tcp.flags.ack=0 tcp.flags.push=0 tcp.flags.reset=0 tcp.flags.syn=0 "
    "tcp.flags.fin=0 ";
const std::string kAnswer =
    kTcp +
    "eth.dst=02:00:00:00:00:01 eth.src=02:00:00:00:00:02 ip.dst=10.99.0.1 ip.src=10.99.0.2 "
    "tcp.srcport=443 tcp.dstport=40000 tcp.seq_raw=305419896 tcp.window_size_value=65535 "
    "tcp.flags.ack=1 ";
const std::string kUdp = kIpv4 + "ip.proto=17 udp.srcport=5004 udp.dstport=65000 ";
const std::string kIgmp =
    kIpv4 +
    "eth.dst=01:00:5e:01:02:03 ip.dst=239.1.2.3 ip.proto=2 ip.ttl=1 ip.flags.df=0 "
    "igmp.maddr=239.1.2.3 igmp.checksum.status=1 ";
const std::string kArp =
    "eth.src=02:00:00:00:00:01 eth.dst=ff:ff:ff:ff:ff:ff eth.type=0x0806 arp.hw.type=1 "
    "arp.proto.type=0x0800 arp.hw.size=6 arp.proto.size=4 arp.opcode=1 "
    "arp.src.hw_mac=02:00:00:00:00:01 arp.src.proto_ipv4=10.99.0.1 "
    "arp.dst.hw_mac=ff:ff:ff:ff:ff:ff arp.dst.proto_ipv4=10.99.0.2 ";

constexpr char kOurMac[] = "02:00:00:00:00:01", kPeerMac[] = "02:00:00:00:00:02";
constexpr char kOurIp[] = "10.99.0.1", kPeerIp[] = "10.99.0.2";

pcap_dumper_t* g_dumper;
int g_frames;

void add(const Frame& frame, int32_t length, const std::string& expected) {
    pcap_pkthdr header{};
    header.caplen = header.len = static_cast<bpf_u_int32>(length);
    pcap_dump(reinterpret_cast<u_char*>(g_dumper), &header, frame.data());
    std::map<std::string, std::string> fields{{"frame.len", to_string(length)}};
    std::istringstream words(expected);
    for (std::string word; words >> word;) {
        const std::size_t equals = word.find('=');
        fields[word.substr(0, equals)] = word.substr(equals + 1);
    }
    ++g_frames;
    for (const auto& [field, value] : fields) {
        std::printf("%d\t%s\t%s\n", g_frames, field.c_str(), value.c_str());
    }
}

// A record that has seen no frame, with a payload.
std::unique_ptr<ether_ctt> record_with(std::size_t size) {
    auto record = std::make_unique<ether_ctt>();
    record->data_len = static_cast<uint16_t>(size);
    for (std::size_t i = 0; i < size; ++i) {
        record->data[i] = static_cast<uint8_t>(3 * i + 1);
    }
    return record;
}

std::string lengths(std::size_t options, std::size_t size) {
    return "ip.len=" + to_string(40 + options + size) + " tcp.hdr_len=" + to_string(20 + options) +
           " tcp.len=" + to_string(size) + " ";
}

Frame add_tcp(uint32_t flags, const std::string& expected, std::size_t size,
              const std::vector<tcp_option>& options = {}, uint32_t option_len = 0) {
    const auto record = record_with(size);
    const auto count = static_cast<uint32_t>(options.size());
    zxbuildtcp_ctt request{kPeerMac,    kOurMac,   kOurIp, kPeerIp, 40000, 443,
                           4294967290U, 305419896, flags,  {},      count, option_len};
    std::copy(options.begin(), options.end(), request.options);
    Frame frame(2048);
    zxframe_api_buildTcp(record.get(), &request, frame.data());
    if (size >= 20) {  // the IPv4 total length leaves out the 20 bytes of the TCP header
        Frame unfinished = frame;
        std::copy_n(record->data, size, &unfinished[54 + option_len]);
        add(unfinished, static_cast<int32_t>(54 + option_len + size),
            kTcp + expected + lengths(option_len, size - 20) + "tcp.checksum.status=0");
    }
    const auto payload_size = static_cast<uint32_t>(size);
    add(frame, zxframe_api_finishTcp(frame.data(), record->data, payload_size),
        kTcp + expected + lengths(option_len, size));
    return frame;
}

// Acknowledges a segment that was received, and then sends a payload of its own.
void add_answers(const Frame& received, std::size_t size) {
    const auto record = record_with(size);
    Frame frame(2048);
    zxframe_api_doFrame(record.get(), received.data());
    const int32_t ack_length = zxframe_api_buildTcpAck(record.get(), frame.data());
    const auto acked = 4294967290U + static_cast<uint32_t>(size);
    const std::string ack = kAnswer + "tcp.ack_raw=" + to_string(acked) + " ";
    add(frame, ack_length, ack + "ip.id=0x148d " + lengths(0, 0));

    zxframe_api_doFrame(record.get(), frame.data());
    record->data_len = static_cast<uint16_t>(size);
    record->tcp.psh = 1;
    const int32_t length = zxframe_api_buildTcpData(record.get(), frame.data());
    std::copy_n(record->data, size, &frame[54]);
    add(frame, length, ack + "ip.id=0x15b9 tcp.flags.push=1 " + lengths(0, size));
}

void add_udp(std::size_t size, uint8_t pad, const char* verdict) {
    const auto record = record_with(size);
    record->data[size] = pad;
    ether_pkt request{
        {}, "02:00:00:00:00:01", "02:00:00:00:00:02", "10.99.0.1", "10.99.0.2", 5004, 65000};
    Frame frame(2048);
    const int32_t length = zxframe_api_buildUdp(record.get(), &request, frame.data());
    std::copy_n(record->data, size, &frame[42]);
    add(frame, length,
        kUdp + "ip.len=" + to_string(28 + size) + " udp.length=" + to_string(8 + size) +
            " udp.checksum.status=" + verdict);
}

void add_igmp(uint32_t version, uint32_t action, uint16_t sources, const char* expected) {
    const auto record = record_with(0);
    igmp_req request{"01:00:5e:01:02:03",   kOurMac, kOurIp,
                     "239.1.2.3",           version, action,
                     sources > 0 ? 1U : 0U, sources, {"192.0.2.1", "192.0.2.2"}};
    Frame frame(256);
    const int32_t length = zxframe_api_buildIgmp(record.get(), &request, frame.data());
    add(frame, length, kIgmp + expected);
}

void add_all() {
    add_tcp(ZXFRAME_TCP_SYN,
            "tcp.flags.syn=1 tcp.options=020405b40402080a000001020000000901030307 ", 0,
            {{2, 4, {0x05, 0xb4}},
             {4, 2, {}},
             {8, 10, {0, 0, 1, 2, 0, 0, 0, 9}},
             {1, 0, {}},
             {3, 3, {7}}},
            20);
    add_tcp(ZXFRAME_TCP_ACK, "tcp.flags.ack=1 tcp.options=0101050a00000010000001001c048005 ", 1460,
            {{1, 0, {}}, {1, 0, {}}, {5, 10, {0, 0, 0, 16, 0, 0, 1, 0}}, {28, 4, {0x80, 5}}}, 16);
    add_tcp(ZXFRAME_TCP_RST, "tcp.flags.reset=1 ", 0);
    add_tcp(ZXFRAME_TCP_URG | ZXFRAME_TCP_FIN, "tcp.flags.urg=1 tcp.flags.fin=1 ", 3);
    for (const std::size_t size : {0U, 1U, 100U, 1459U}) {
        add_answers(
            add_tcp(ZXFRAME_TCP_ACK | ZXFRAME_TCP_PSH, "tcp.flags.ack=1 tcp.flags.push=1 ", size),
            size);
        add_udp(size, 0, "1");
    }
    add_udp(100, 0xff, "1");
    add_udp(101, 0xff, "0");  // the byte behind an odd payload is summed, too
    Frame arp(64);
    const auto record = record_with(0);
    add(arp, zxframe_api_buildArp(record.get(), kOurMac, kOurIp, kPeerIp, arp.data()), kArp);
    add_igmp(1, ZXFRAME_IGMP_QUERY, 0, "ip.len=32 igmp.type=0x11");
    add_igmp(1, ZXFRAME_IGMP_JOIN, 0, "ip.len=32 igmp.type=0x12");
    add_igmp(2, ZXFRAME_IGMP_JOIN, 0, "ip.len=32 igmp.type=0x16");
    add_igmp(2, ZXFRAME_IGMP_LEAVE, 0, "ip.len=32 igmp.type=0x17");
    add_igmp(3, ZXFRAME_IGMP_QUERY, 0, "ip.len=40 igmp.type=0x11");
    add_igmp(3, ZXFRAME_IGMP_JOIN, 0, "ip.len=40 igmp.type=0x22 igmp.record_type=4");
    add_igmp(3, ZXFRAME_IGMP_LEAVE, 0, "ip.len=40 igmp.type=0x22 igmp.record_type=3");
    // The total length leaves out the sources, so receivers see the report cut.
    add_igmp(3, ZXFRAME_IGMP_JOIN, 2,
             "ip.len=40 igmp.type=0x22 igmp.record_type=5 igmp.checksum.status=0 _ws.malformed=1");
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
