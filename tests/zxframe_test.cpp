#include "zxframe.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "frames.hpp"
#include "log_capture.hpp"

namespace {

using namespace zx::test;
using testing::ElementsAre;
using testing::IsEmpty;

class FrameTest : public testing::Test {
protected:
    FrameTest() { record->print_flag = 1; }

    Lines decode(const Bytes& bytes) {
        EXPECT_EQ(zxframe_api_doFrame(record.get(), bytes.data()), 0);
        return log.take();
    }

    // The options of the record, as "kind/len:value ".
    std::string options() const {
        std::string text;
        for (uint32_t i = 0; i < record->tcp.option_count; ++i) {
            const tcp_option& o = record->tcp.options[i];
            text += std::to_string(o.kind) + "/" + std::to_string(o.len) + ":" +
                    to_hex(o.val, o.len < 2U ? 0U : o.len - 2U) + " ";
        }
        return text;
    }

    LogCapture log;
    std::unique_ptr<ether_ctt> record = std::make_unique<ether_ctt>();
};

TEST_F(FrameTest, DecodesATcpFrameWithOptions) {
    record->ipv4.flags = 5;
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
    EXPECT_EQ(to_hex(record.get(), 14), "001b21aabbcc02005e1000010008");
    EXPECT_STREQ(record->str_source_mac, "02:00:5e:10:00:01");
    EXPECT_EQ(to_hex(&record->ipv4, 20), "6410b800cdab1d093f060b0ac0a8010a0a0000c8");
    EXPECT_EQ(to_hex(&record->tcp, 22), "bb0150c3feffffff010000800f800400ffffefbe0201");
    EXPECT_EQ(options() + std::to_string(record->data_len),
              "2/4:05b4 3/3:07 1/0: 4/2: 8/10:00000001fffffffe 5/10:0000001000000020 28/4:0105 "
              "6/2: 0/0: 100");
    record->tcp.reserved_flags = 3;
    record->tcp.urg = record->tcp.psh = record->tcp.rst = record->tcp.fin = 1;
    EXPECT_EQ(to_hex(&record->tcp.ack_seq + 1, 4), "0ff00f00");
}

TEST_F(FrameTest, DecodesUdpAndDumpsTheRecordsOwnPayload) {
    std::memcpy(record->data, "abcd", 4);
    for (const auto& [len, size] : table("0008 0|0004 65532|3543 13627|000b 3")) {
        const Lines lines = decode(packet("11", "14e9 0035" + len + "1a2b 58595a"));
        EXPECT_EQ(Lines(lines.begin() + 17, lines.end()),
                  infos("==================== UDP Header Info =====================|"
                        "Source Port: 5353|Destination port:53|len :" +
                        std::to_string(record->udp.len) + "|Checksum:0x1a2b|data len: " + size));
        const std::size_t dumped = std::min(std::stoul(size), std::size(record->data));
        EXPECT_THAT(log.take_dumps(), ElementsAre("Data:" + to_hex(record->data, dumped)));
    }
    EXPECT_EQ(to_hex(&record->udp, 8), "e91435000b002b1a");
}

TEST_F(FrameTest, DecodesArpAndKeepsWhatThatDoesNotCover) {
    decode(packet("06", tcp_header("6000", "01010101")));
    EXPECT_EQ(record->data_len, 65532);
    decode(packet("00"));
    const std::string tcp = to_hex(&record->tcp, sizeof record->tcp);
    const auto expect = [&](const std::string& start, const std::string& dump) {
        EXPECT_EQ(decode(frame("0806" + start + "001122334455 c0a8010a fffefdfcfbfa ffffffff")),
                  frame_dump("Type:ARP|==================== ARP Header Info =====================|"
                             "hardware type:" +
                             dump +
                             "|sender mac: 00:11:22:33:44:55|sender ipaddr:192.168.1.10|"
                             "target mac:ff:fe:fd:fc:fb:fa|target ipaddr:255.255.255.255"));
    };
    for (const auto& [type, name] :
         table("0001  Ethernet 10/100Mbps.|0002  Experimental Ethernet.|0003  AX.25 Level 2.|"
               "0004  PROnet token ring.|0006 IEEE 802.2 Ethernet/TR/TB.|0008 APPLEtalk.|0013 ATM.|"
               "0018 IEEE 1394 IPv4 .|0005 Unknow.|0100 Unknow.")) {
        expect(type + "080006040001",
               name + "|protocol type:IP|hardware size: 6|protocol size: 4|opcode:requset");
    }
    expect("0013080000ff0002",
           "ATM.|protocol type:IP|hardware size: 0|protocol size: 255|opcode:reply");
    expect("001386dd08100003",
           "ATM.|protocol type:error.|hardware size: 8|protocol size: 16|opcode:unknow");
    EXPECT_EQ(to_hex(&record->arp, 14), "1300dd8608100300001122334455");
    EXPECT_EQ(to_hex(&record->arp.sender_ip, 10), "c0a8010afffefdfcfbfa");
    EXPECT_EQ(record->arp.target_ip, INADDR_NONE);
    EXPECT_STREQ(record->ipv4.ip_proto_name + 8, "otocol for TCP");
    EXPECT_EQ(to_hex(&record->tcp, sizeof record->tcp), tcp);
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
        EXPECT_EQ(record->ether_type_name, name);
    }
    for (const auto& [type, dump] :
         table("0000 IEEE 802.3 len:0|0100 IEEE 802.3 len:256|0101 test|01ff test|05dc IEEE 802.3 "
               "len:1500|05dd Unknow ether type(0x5dd)|888e Unknow ether type(0x888e)")) {
        EXPECT_EQ(decode(frame(type)), frame_dump(dump));
    }
    EXPECT_EQ(decode(frame("0200")), frame_dump("IEEE 802.3 len:512| Xerox PUP, no support to "
                                                "parse this frame"));
    EXPECT_EQ(decode(frame("0500")), frame_dump("IEEE 802.3 len:1280| Sprite, no support to "
                                                "parse this frame"));
    EXPECT_STREQ(record->ether_type_name, "res");
    std::memset(record->ether_type_name, 'x', sizeof record->ether_type_name);
    EXPECT_EQ(decode(frame("86dd 60")), frame_dump("Type:IPv6"));
    EXPECT_EQ(std::string(record->ether_type_name, 10), std::string("IPv6\0\0\0\0xx", 10));
}

TEST_F(FrameTest, NamesIpProtocols) {
    for (const auto& [number, name] :
         table("138 |0 Dummy protocol for TCP|1 ICMP|2 IGMP|4 IPIP tunnels|6 TCP|8 EGP|12 PUP|"
               "17 UDP|22 IDP|29 TP|33 DCCP|41 IPV6|46 RSVP|47 GRE |50 ESP |51 AH |92 MTP|"
               "94 BEETPH |98 ENCAP |103 PIM |108 COMP|132 SCTP |136 UDPLITE |137 MPLS |3 |255 ")) {
        Bytes bytes = packet("00");
        bytes[23] = static_cast<uint8_t>(std::stoi(number));
        const std::string code = to_hex(&bytes[23], 1) + "(" + number + ")";
        std::string stored(record->ipv4.ip_proto_name, ZXFRAME_NAME_SIZE);
        std::string named = "Unknow protocol(" + number + ")";
        std::string unsupported = "No supprt protocol(code:0x" + code + "),please fix me";
        if (!name.empty()) {
            stored = name + std::string(ZXFRAME_NAME_SIZE - name.size(), '\0');
            named = "Protocol:" + name + "(" + number + ")";
            unsupported = number == "0" ? unsupported : name + ",no support parse";
        }
        const Lines lines = decode(bytes);
        EXPECT_EQ(lines.at(13), infos(named)[0]);
        EXPECT_TRUE(name == "TCP" || name == "UDP" || lines.at(17) == infos(unsupported)[0]);
        EXPECT_EQ(std::string(record->ipv4.ip_proto_name, ZXFRAME_NAME_SIZE), stored);
    }
}

TEST_F(FrameTest, ReadsAsFarAsThePromisedBytes) {
    // Both headers are as long as can be, and the last option byte begins an option of 255 bytes.
    Bytes bytes = packet("06");
    bytes[14] = 0x4F;
    bytes[86] = 0xF0;
    std::fill_n(&bytes[94], 39, uint8_t{1});
    bytes[133] = 10;
    bytes[134] = 255;
    bytes[ZXFRAME_READABLE - 1] = 0xEE;
    decode(bytes);
    EXPECT_EQ(record->tcp.option_count, 40U);
    EXPECT_EQ(record->tcp.options[39].val[252], 0xEE);
    bytes[14] = 0x40;
    decode(bytes);
    EXPECT_EQ(record->tcp.source, 0x4000);
}

TEST_F(FrameTest, DecodesTcpOptions) {
    const struct {
        const char* hex;  // the option bytes behind the data offset and flags
        const char* stored;
        const char* dump;
    } cases[] = {
        {"5000 02040001", "", "(0 bytes)"},
        {"6000 00000100", "0/0: 0/0: 1/0: 0/0: ", "(4 bytes)|EOL|EOL|NOP|EOL"},
        {"8000 0101080a8000000000000006", "1/0: 1/0: 8/10:8000000000000006 ",
         "(12 bytes)|NOP|NOP|TSOPT|    -tsval:2147483648|    -tsecr:6"},
        {"8000 0703aa09020a021c04003c01", "7/3:aa 9/2: 10/2: 28/4:003c 1/0: ",
         "(12 bytes)|ECHOREPLY|    -val:unsupport parse|POCP|    -val:unsupport parse|POSP|"
         "    -val:unsupport parse|UTO|    -G bit:0|    -UserTimeout:60(s)|NOP"},
        {"6000 1c0481ff", "28/4:81ff ", "(4 bytes)|UTO|    -G bit:129|    -UserTimeout:255(s)"},
        {"a000 05120000000100000002ffffffff000000000b02", "5/18:0000000100000002ffffffff00000000 ",
         "(20 bytes)|SACK|    -len:18|    -slre:1~2|    -slre:4294967295~0|unknow kind:11"},
        {"7000 050900000001000002", "5/9:00000001000002 ", "(8 bytes)|SACK|    -len:9"},
        {"6000 01ff0101", "1/0: ", "(4 bytes)|NOP|unknow kind:255"},
        {"6000 1b040101", "", "(4 bytes)|unknow kind:27"},
        {"6000 1d040101", "", "(4 bytes)|unknow kind:29"},
        {"6000 01020101", "1/0: ", "(4 bytes)|NOP"},
        {"6000 01080001", "1/0: ", "(4 bytes)|NOP"},
    };
    for (const auto& c : cases) {
        record->tcp.option_count = 0;
        const Bytes tcp = from_hex(tcp_header(std::string(c.hex, 4), c.hex + 5), 314);
        zxframe_innerapi_parseTcpOpt(record.get(), tcp.data(), tcp.data());
        EXPECT_EQ(options(), c.stored);
        EXPECT_EQ(log.take(), infos("====TCP Options:" + std::string(c.dump)));
    }
}

TEST_F(FrameTest, AppendsOptionsUpTo128) {
    for (unsigned value = 0; value < 45; ++value) {
        decode(packet("06", tcp_header("7000", "0304" + to_hex(&value, 2) + "0303 00 01")));
    }
    EXPECT_EQ(options().substr(0, 34), "3/4:0000 3/3:00 1/0: 3/4:0100 3/3:");
    EXPECT_EQ(record->tcp.options[126].val[0], 42);
    const std::string before = to_hex(&record->tcp.options, sizeof record->tcp.options);
    for (const uint32_t count : {128U, 0xFFFFFFFFU}) {
        EXPECT_EQ(std::exchange(record->tcp.option_count, count), 128U);
        decode(packet("06", tcp_header("6000", "01010101")));
        EXPECT_EQ(std::exchange(record->tcp.option_count, 128), count);
        EXPECT_EQ(to_hex(&record->tcp.options, sizeof record->tcp.options), before);
    }
}

TEST_F(FrameTest, WritesErrorsAlwaysAndDumpsWhereTheyAreWanted) {
    const Bytes broken = packet("06", tcp_header("4000", "01010101"));
    const std::string error = "[ERROR][NETFRAME]Header Length(16) is less than 20,maybe error";
    EXPECT_THAT(decode(broken), testing::Contains(error));
    EXPECT_EQ(record->data_len, 4);
    log.set_level(3);
    EXPECT_THAT(decode(broken),
                ElementsAre("[NOTICE][NETFRAME]============  FRAME  ============", error));
    log.set_level(5);
    const Bytes tcp = from_hex(tcp_header("6000", "01010101"), 314);
    zxframe_innerapi_parseTcp(record.get(), tcp.data(), nullptr);
    EXPECT_EQ(log.take().size(), 18U);  // the options are not asked for
    record->print_flag = 0;
    EXPECT_THAT(decode(broken), ElementsAre(error));
    EXPECT_EQ(options(), "");
    zxframe_innerapi_doIpv6(record.get(), tcp.data());
    for (const auto& quiet : {packet("06", tcp_header("6000", "0303001e")), packet("11"),
                              packet("01"), packet("ff"), frame("0806"), frame("0200")}) {
        EXPECT_THAT(decode(quiet), IsEmpty());
    }
    EXPECT_EQ(log.take_dumps().size(), 1U);
}

TEST_F(FrameTest, FiltersFrames) {
    // TCP to the other station, UDP back from it, ICMP and ARP to it.
    const Bytes frames[] = {packet("06", tcp_header("5010")),
                            from_hex("02005e100001 001b21aabbcc 0800 45000028 00010000 40110000"
                                     "0a0000c8 c0a8010a c350 01bb 0008 0000",
                                     ZXFRAME_READABLE),
                            packet("01", "01bbc350"),
                            from_hex("ffffffffffff 02005e100001 0806 00010800 06040001"
                                     "02005e100001 c0a8010a ffffffffffff 0a0000c8",
                                     ZXFRAME_READABLE)};
    // Which pass "MAC;source;destination;protocol;IP;source;destination;port;source;destination".
    const auto cases = table(
        "1111 |1111 ;;;;;;;0;-1;-443|1110 00:1b:21:aa:bb:cc|0001 x,ff:ff:ff:ff:ff:ff|"
        "0000 02:00:5E:10:00:01|0000 02:00:5e|1011 ;02:00:5e:10:00:01|0100 ;;02:00:5e:10:00:01|"
        "1010 ;02:00:5e:10:00:01;00:1b:21:aa:bb:cc|1110 00:1b:21:aa:bb:cc;x;x|"
        "0000 x;02:00:5e:10:00:01|1110 00:1b:21:aa:bb:cc;;;;;;;80|"
        "0000 ff:ff:ff:ff:ff:ff;;;;192.168.1.10|0000 ;00:1b:21:aa:bb:cc;;tcp|1000 ;;;tcp|"
        "0100 ;;;udp|1111 ;;;TCP|1111 ;;;tcp |1010 ;;;UDP;;192.168.1.10|1110 ;;;;192.168.1.10|"
        "0000 ;;;;192.168.1.1|1110 ;;;;192.168.1.100|1110 ;;;;1.1.1.1,10.0.0.200|"
        "1010 ;;;;;192.168.1.10|0100 ;;;;;;192.168.1.10|1010 ;;;;;192.168.1.10;10.0.0.200|"
        "0000 ;;;;;192.168.1.10;10.0.0.20|1110 ;;;;10.0.0.200;x;x|1111 ;;;;;;;80|"
        "1111 ;;;;;;;;80;80|1000 ;;;tcp;;;;443|1000 ;;;tcp;;;;50000|0000 ;;;tcp;;;;80|"
        "1100 ;;;;10.0.0.200;;;443|0000 ;;;;10.0.0.200;;;65979|1000 ;;;;10.0.0.200;;;;443|"
        "0100 ;;;;10.0.0.200;;;;;443|0000 ;;;;10.0.0.200;;;;443;1|"
        "1100 ;;;;10.0.0.200;;;443;1;1");
    const auto filter = std::make_unique<frame_filter_ctt>();
    for (const auto& [passing, text] : cases) {
        SCOPED_TRACE(text);
        *filter = {};
        Lines s = split(text, ';');
        s.resize(10);
        const char** const texts[] = {&filter->mac,      &filter->source_mac, &filter->dest_mac,
                                      &filter->protocol, &filter->ip,         &filter->source_ip,
                                      &filter->dest_ip};
        for (std::size_t i = 0; i < std::size(texts); ++i) {
            *texts[i] = s[i].c_str();
        }
        filter->port = std::atoi(s[7].c_str());
        filter->source_port = std::atoi(s[8].c_str());
        filter->dest_port = std::atoi(s[9].c_str());
        filter->frame.print_flag = 1;
        std::string passed;
        for (const auto& bytes : frames) {
            passed += std::to_string(zxframe_api_filterFrame(nullptr, bytes.data(), filter.get()));
        }
        EXPECT_EQ(passed, passing);
        EXPECT_EQ(filter->frame.print_flag, 1 - filter->active);
        EXPECT_EQ(filter->frame.ether_type, filter->active != 0 ? 0x0806 : 0);
    }
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(FrameTest, RemembersWhatIsSetInAFilter) {
    const auto filter = std::make_unique<frame_filter_ctt>();
    const Bytes tcp = packet("06", tcp_header("5010"));
    const auto result_and_flags = [&] {
        const int32_t result = zxframe_api_filterFrame(this, tcp.data(), filter.get());
        return std::to_string(result) + " " + to_hex(&filter->initialized, 13);
    };
    EXPECT_EQ(result_and_flags(), "1 01000000000000000000000000");
    filter->protocol = "udp";
    EXPECT_EQ(result_and_flags(), "1 01000000000000000000000000");
    filter->initialized = 0;
    EXPECT_EQ(result_and_flags(), "0 01010000000100000000000011");
    filter->protocol = "tcp";
    EXPECT_EQ(result_and_flags(), "0 01010000000100000000000011");
    filter->mac = filter->dest_mac = filter->source_mac = "02:00:5e:10:00:01";
    filter->ip = filter->source_ip = filter->dest_ip = "10.0.0.200";
    filter->port = filter->source_port = filter->dest_port = 443;
    filter->initialized = 0;
    EXPECT_EQ(result_and_flags(), "1 01010101010101010101010106");
}

TEST_F(FrameTest, TellsSegmentsByTheirFlags) {
    for (unsigned flags = 0; flags < 256; ++flags) {
        for (const uint16_t size : {uint16_t{0}, uint16_t{1}, uint16_t{65535}}) {
            SCOPED_TRACE(flags);
            decode(packet("06", tcp_header("50" + to_hex(&flags, 1))));
            record->data_len = size;
            EXPECT_EQ(zxframe_api_isTcp_dTos_ack(record.get(), "10.0.0.200"),
                      flags % 64 == 0x10 && size == 0);
            EXPECT_EQ(zxframe_api_isTcp_dTos_close(record.get(), "10.0.0.200"), flags % 64 == 0x11);
            EXPECT_EQ(zxframe_api_isTcp_sTod_data(record.get(), "192.168.1.10"), size != 0);
        }
    }
}

TEST_F(FrameTest, TellsFramesByTheirAddresses) {
    const Bytes ack = packet("06", tcp_header("5010"));
    Bytes end = packet("06", tcp_header("5011"));
    end[17] = 41;  // a byte of payload
    Bytes everyone = ack;
    std::fill_n(&everyone[26], 8, uint8_t{0xFF});
    const Bytes udp = packet("11", "01bbc350 0009 0000");
    const Bytes arp = frame("0806 00010800 06040001 020600000000 c0a8010a 000000000000 0a0000c8");
    const ether_ctt* const in = record.get();
    // IPv4 or ARP? From the one or to the other? TCP? And to the other its ACK, its end; data?
    const auto answers = [&](const Bytes& bytes, const char* source, const char* dest) {
        decode(bytes);
        std::string text;
        for (const int32_t answer :
             {zxframe_api_is_ipArp(in), zxframe_api_is_IparpOrIpaddr(in, source, dest),
              zxframe_api_isTcp(in), zxframe_api_isTcp_dTos_ack(in, dest),
              zxframe_api_isTcp_dTos_close(in, dest), zxframe_api_isTcp_sTod_data(in, source)}) {
            text += std::to_string(answer);
        }
        return text;
    };
    EXPECT_EQ(answers(ack, "192.168.1.10", "10.0.0.200"), "111100");
    EXPECT_EQ(answers(ack, "192.168.1.10", "10.0.0.2"), "111000");
    EXPECT_EQ(answers(ack, "10.0.0.200", "192.168.1.10"), "101000");
    EXPECT_EQ(answers(end, "192.168.1.10", "10.0.0.200"), "111011");
    EXPECT_EQ(answers(end, "1.1.1.1", "10.0.0.200"), "111010");
    EXPECT_EQ(answers(end, "192.168.1.10", ""), "111001");
    EXPECT_EQ(answers(udp, "192.168.1.10", "10.0.0.200"), "110000");
    EXPECT_EQ(answers(arp, "192.168.1.10", "192.168.1.10"), "110000");
    EXPECT_EQ(answers(arp, "1.1.1.1", "10.0.0.200"), "110000");
    EXPECT_EQ(answers(arp, "10.0.0.200", "192.168.1.10"), "100000");
    EXPECT_EQ(answers(everyone, "nobody", "1.2.3.256"), "101000");
    EXPECT_EQ(answers(frame("88cc"), "255.255.255.255", "255.255.255.255"), "000000");
    EXPECT_EQ(answers(everyone, "nobody", "255.255.255.255"), "111100");
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(in, nullptr, "255.255.255.255"), 1);
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(in, "255.255.255.255", nullptr), 1);
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(in, nullptr, nullptr), 0);
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
