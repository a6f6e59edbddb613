#include "zxframe.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "frames.hpp"
#include "log_capture.hpp"
#include "zxlog.h"

namespace {

int g_matches = -1;  // that the next search answers; below 0: as many as there are

}  // namespace

// In place of the logging library's, whose rule decides what a filter names.
extern "C" int32_t zxlog_api_strCasestrNum(const char* text, const char* part, int32_t, int32_t) {
    return g_matches >= 0                       ? g_matches
           : text == nullptr || part == nullptr ? 0
                                                : std::strstr(text, part) != nullptr;
}

namespace {

using namespace zx::test;
using testing::ElementsAre;
using testing::IsEmpty;

class FrameTest : public testing::Test {
protected:
    FrameTest() { record.print_flag = 1; }

    Lines decode(const Bytes& bytes) {
        EXPECT_EQ(zxframe_api_doFrame(&record, bytes.data()), 0);
        return log.take();
    }

    LogCapture log;
    ether_ctt record{};
};

TEST_F(FrameTest, DecodesATcpFrameWithOptions) {
    record.ipv4.flags = 5;
    EXPECT_EQ(decode(frame("0800 46 10 00b8 abcd 4123 3f 06 0a0b c0a8010a 0a0000c8 01010100"
                           "01bb c350 fffffffe 80000001 ff d2 ffff beef 0102"
                           "020405b4 030307 01 0402 080a00000001fffffffe 050a0000001000000020"
                           "1c040105 0602 00 1e 0101")),
              frame_dump("Type:IPv4|=============== IP header info===============|Version :4|"
                         "Header Length:24 bytes(6)|Differentiated Services Field: 0x10|"
                         "Total Length: 184|Identification: 0xabcd(43981)|Fragment offset: 16675|"
                         "Time to live: 63|Protocol:TCP(6)|Header checksum: 0xa0b|"
                         "Source : 192.168.1.10|Destination: 10.0.0.200|"
                         "==================== TCP Header Info =====================|"
                         "Source Port: 443|Destination port:50000|Sequence_number :4294967294|"
                         "Acknowledgment number:2147483649|Header Length: 60 bytes|Flags: |"
                         "    Urgent:0|    Acknowledgment:1|    Push :0|    Reset :0|    Syn :1|"
                         "    Fin : 0|Window size: 65535|Checksum: 48879|Urgent pointer: 258|"
                         "====TCP Options:(40 bytes)|MSS|    -val:1460|WSO|    -val:7|NOP|SACKP|"
                         "    -val:support sack|TSOPT|    -tsval:1|    -tsecr:4294967294|SACK|"
                         "    -len:10|    -slre:16~32|UTO|    -G bit:1|    -UserTimeout:5(minute)|"
                         "ECHO|    -val:unsupport parse|EOL|unknow kind:30|"
                         "total_len len,ip_header_len,tcp_header_len: 184,6,15|data len: 100"));
    // As it lies in memory: addresses in network order, the flags of IPv4 untouched.
    EXPECT_EQ(to_hex(&record.ipv4, 20), "6410b800cdab1d093f060b0ac0a8010a0a0000c8");
    EXPECT_EQ(to_hex(&record.tcp, 22), "bb0150c3feffffff010000800f800400ffffefbe0201");
}

TEST_F(FrameTest, DumpsTcpOptions) {
    const struct {
        const char* offset_and_flags;
        const char* options;
        const char* dump;
    } cases[] = {
        {"6000", "00000100", "(4 bytes)|EOL|EOL|NOP|EOL"},
        {"8000", "0703aa09020a021c04003c01",
         "(12 bytes)|ECHOREPLY|    -val:unsupport parse|POCP|    -val:unsupport parse|POSP|"
         "    -val:unsupport parse|UTO|    -G bit:0|    -UserTimeout:60(s)|NOP"},
        {"6000", "1c0481ff", "(4 bytes)|UTO|    -G bit:129|    -UserTimeout:255(s)"},
        {"a000", "05120000000100000002ffffffff000000000b02",
         "(20 bytes)|SACK|    -len:18|    -slre:1~2|    -slre:4294967295~0|unknow kind:11"},
        {"7000", "050900000001000002", "(8 bytes)|SACK|    -len:9"},
        {"6000", "01ff0101", "(4 bytes)|NOP|unknow kind:255"},
        {"6000", "1b040101", "(4 bytes)|unknow kind:27"},
    };
    for (const auto& c : cases) {
        const Bytes tcp = from_hex(tcp_header(c.offset_and_flags, c.options), 314);
        zxframe_innerapi_parseTcpOpt(&record, tcp.data(), tcp.data());
        EXPECT_EQ(log.take(), infos("====TCP Options:" + std::string(c.dump)));
    }
}

TEST_F(FrameTest, DecodesUdpAndDumpsTheRecordsOwnPayload) {
    std::memcpy(record.data, "abcd", 4);
    for (const auto& [len, size] : table("0008 0|0004 65532|3543 13627|000b 3")) {
        const Lines lines = decode(packet("11", "14e9 0035" + len + "1a2b 58595a"));
        EXPECT_EQ(Lines(lines.begin() + 17, lines.end()),
                  infos("==================== UDP Header Info =====================|"
                        "Source Port: 5353|Destination port:53|len :" +
                        std::to_string(record.udp.len) + "|Checksum:0x1a2b|data len: " + size));
        const std::size_t dumped = std::min(std::stoul(size), std::size(record.data));
        EXPECT_THAT(log.take_dumps(), ElementsAre("Data:" + to_hex(record.data, dumped)));
    }
}

TEST_F(FrameTest, DecodesArp) {
    const auto expect = [this](const std::string& start, const std::string& dump) {
        EXPECT_EQ(decode(frame("0806" + start + "001122334455 c0a8010a fffefdfcfbfa ffffffff")),
                  frame_dump("Type:ARP|==================== ARP Header Info =====================|"
                             "hardware type:" +
                             dump +
                             "|sender mac: 00:11:22:33:44:55|sender ipaddr:192.168.1.10|"
                             "target mac:ff:fe:fd:fc:fb:fa|target ipaddr:255.255.255.255"));
    };
    for (const auto& [type, name] :
         table("0001  Ethernet 10/100Mbps.|0002  Experimental Ethernet.|0003  AX.25 Level 2.|"
               "0004  PROnet token ring.|0006 IEEE 802.2 Ethernet/TR/TB.|0008 APPLEtalk.|"
               "0018 IEEE 1394 IPv4 .|0005 Unknow.|0100 Unknow.")) {
        expect(type + "080006040001",
               name + "|protocol type:IP|hardware size: 6|protocol size: 4|opcode:requset");
    }
    expect("0013080000ff0002",
           "ATM.|protocol type:IP|hardware size: 0|protocol size: 255|opcode:reply");
    expect("001386dd08100003",
           "ATM.|protocol type:error.|hardware size: 8|protocol size: 16|opcode:unknow");
}

TEST_F(FrameTest, NamesEtherTypes) {
    for (const auto& [type, name] : table(
             "0600 XEROX NS IDP|0661 DLOG|0801 X.75 Internet|0802 NBS Internet|0803 ECMA Internet|"
             "0804 Chaosnet|0805 X.25 Level 3|0808 Frame Relay ARP|6559 Raw Frame Relay|8035 DRARP|"
             "8037 Novell Netware IPX|809b AppleTalk protocol |80d5 IBM SNA Services over Ethernet|"
             "80f3 AppleTalk ARP|8100 IEEE 802.1Q VLAN tagging|8137 IPX|814c SNMP|8809 OAM|"
             "880b PPP|880c GSMP|8847 MPLS <unicast>|8848 MPLS<multicast>|8863 PPPoE <Discovery "
             "Stage>|8864 PPPoE <PPP Session Stage>|88bb LWAPP|88cc LLDP|8e88 EAPOL|9000 used to "
             "test interfaces|9100 VLAN Tag Protocol Identifier1|9200 VLAN Tag Protocol "
             "Identifier2|ffff res")) {
        EXPECT_EQ(decode(frame(type)),
                  frame_dump("Type:" + name + "|" + name + ", no support to parse this frame"));
        EXPECT_EQ(record.ether_type_name, name);
    }
    const char* const others[][2] = {
        {"0000", "IEEE 802.3 len:0"},
        {"0100", "IEEE 802.3 len:256"},
        {"0101", "test"},
        {"01ff", "test"},
        {"0200", "IEEE 802.3 len:512| Xerox PUP, no support to parse this frame"},
        {"0500", "IEEE 802.3 len:1280| Sprite, no support to parse this frame"},
        {"05dc", "IEEE 802.3 len:1500"},
        {"05dd", "Unknow ether type(0x5dd)"},
        {"888e", "Unknow ether type(0x888e)"},
    };
    for (const auto& [type, dump] : others) {
        EXPECT_EQ(decode(frame(type)), frame_dump(dump));
        EXPECT_STREQ(record.ether_type_name, "res");
    }
    std::memset(record.ether_type_name, 'x', sizeof record.ether_type_name);
    EXPECT_EQ(decode(frame("86dd 60")), frame_dump("Type:IPv6"));
    EXPECT_EQ(std::string(record.ether_type_name, 10), std::string("IPv6\0\0\0\0xx", 10));
}

TEST_F(FrameTest, NamesIpProtocols) {
    std::string last_name;
    for (const auto& [number, name] :
         table("0 Dummy protocol for TCP|1 ICMP|2 IGMP|4 IPIP tunnels|6 TCP|8 EGP|12 PUP|17 UDP|"
               "22 IDP|29 TP|33 DCCP|41 IPV6|46 RSVP|47 GRE |50 ESP |51 AH |92 MTP|94 BEETPH |"
               "98 ENCAP |103 PIM |108 COMP|132 SCTP |136 UDPLITE |137 MPLS |138 |255 ")) {
        Bytes bytes = packet("00");
        bytes[23] = static_cast<uint8_t>(std::stoi(number));
        const Lines lines = decode(bytes);
        const std::string code = "(" + number + ")";
        const std::string unknown =
            "No supprt protocol(code:0x" + to_hex(&bytes[23], 1) + code + "),please fix me";
        EXPECT_EQ(lines.at(13),
                  infos((name.empty() ? "Unknow protocol" : "Protocol:" + name) + code)[0]);
        if (name != "TCP" && name != "UDP") {
            const bool is_known = !name.empty() && number != "0";
            EXPECT_EQ(lines.at(17), infos(is_known ? name + ",no support parse" : unknown)[0]);
        }
        last_name = name.empty() ? last_name : name;
        EXPECT_EQ(record.ipv4.ip_proto_name, last_name);
    }
}

TEST_F(FrameTest, WritesErrorsAlwaysAndDumpsWhereTheyAreWanted) {
    const Bytes broken = packet("06", tcp_header("4000", "01010101"));
    const std::string error = "[ERROR][NETFRAME]Header Length(16) is less than 20,maybe error";
    log.set_level(3);
    EXPECT_THAT(decode(broken),
                ElementsAre("[NOTICE][NETFRAME]============  FRAME  ============", error));
    log.set_level(5);
    const Bytes tcp = from_hex(tcp_header("6000", "01010101"), 314);
    zxframe_innerapi_parseTcp(&record, tcp.data(), nullptr);
    EXPECT_EQ(log.take().size(), 18U);  // the options are not asked for
    EXPECT_EQ(record.tcp.option_count, 0U);
    record.print_flag = 0;
    EXPECT_THAT(decode(broken), ElementsAre(error));
    for (const auto& quiet : {packet("06", tcp_header("6000", "0303001e")), packet("11"),
                              packet("ff"), frame("0806"), frame("0200")}) {
        EXPECT_THAT(decode(quiet), IsEmpty());
    }
    EXPECT_EQ(log.take_dumps().size(), 1U);
}

TEST_F(FrameTest, RemembersWhatIsSetInAFilter) {
    frame_filter_ctt filter{};
    const Bytes tcp = packet("06", tcp_header("5010"));
    const auto result_and_flags = [&] {
        const int32_t result = zxframe_api_filterFrame(this, tcp.data(), &filter);
        return std::to_string(result) + " " + to_hex(&filter.initialized, 13);
    };
    EXPECT_EQ(result_and_flags(), "1 01000000000000000000000000");
    filter = {};
    filter.protocol = "udp";
    EXPECT_EQ(result_and_flags(), "0 01010000000100000000000011");
    filter.protocol = "tcp";
    filter.mac = filter.dest_mac = filter.source_mac = "02:00:5e:10:00:01";
    filter.ip = filter.source_ip = filter.dest_ip = "10.0.0.200";
    filter.port = filter.source_port = filter.dest_port = 443;
    EXPECT_EQ(result_and_flags(), "0 01010000000100000000000011");
    filter.initialized = 0;
    EXPECT_EQ(result_and_flags(), "1 01010101010101010101010106");

    filter.mac = filter.ip = nullptr;  // as is remembered, something is wanted
    EXPECT_EQ(result_and_flags(), "0 01010101010101010101010106");
    EXPECT_EQ(zxframe_innerapi_filterFrameByIp(this, &filter), 0);
    g_matches = 1;
    EXPECT_EQ(result_and_flags(), "1 01010101010101010101010106") << "by another rule";
    g_matches = -1;
    EXPECT_EQ(zxframe_api_filterFrame(this, tcp.data(), nullptr) +
                  zxframe_innerapi_filterFrameByMac(this, nullptr) +
                  zxframe_innerapi_filterFrameByIp(this, nullptr),
              0);
    EXPECT_EQ(log.take(), Lines(3, "[ERROR][NETFRAME]Param error####filter"));
}

TEST_F(FrameTest, NamesTheLineOfTheCallThatItSpeaksFor) {
    flag_printLineFunc = 1;
    EXPECT_EQ(zxframe_api_isTcp(nullptr) + zxframe_api_is_ipArp(nullptr), 0);
    std::map<std::string, std::set<std::string>> lines;
    for (const std::string& line : decode(frame("0806"))) {
        const Lines place = split(line.substr(line.find("][", 8) + 2), ' ');
        lines[place[0]].insert(place[1].substr(0, place[1].find(']')));
    }
    for (const char* const func : {"zxframe_api_isTcp", "zxframe_innerapi_printEthrtType",
                                   "zxframe_innerapi_parseArp", "zxframe_innerapi_parseEthrt"}) {
        EXPECT_EQ(lines[func].size(), 1U) << func;
    }
    EXPECT_NE(lines["zxframe_api_isTcp"], lines["zxframe_api_is_ipArp"]);
    EXPECT_EQ(lines.size(), 5U);
}

TEST_F(FrameTest, TellsFramesByTheirAddresses) {
    Bytes ack = packet("06", tcp_header("5010"));
    std::fill_n(&ack[26], 8, uint8_t{0xFF});
    decode(ack);
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(&record, nullptr, "255.255.255.255"), 1);
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(&record, "nobody", "1.2.3.256"), 0);
    EXPECT_EQ(zxframe_api_isTcp_dTos_ack(&record, "255.255.255.255"), 1);
    EXPECT_EQ(zxframe_api_isTcp_dTos_ack(&record, "255.255.255.25"), 0);
    EXPECT_EQ(zxframe_api_isTcp_dTos_close(&record, "255.255.255.25"), 0);
    EXPECT_EQ(zxframe_api_isTcp_sTod_data(&record, "255.255.255.25"), 0);
}

}  // namespace
