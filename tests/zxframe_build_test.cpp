#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "frames.hpp"
#include "log_capture.hpp"

namespace {

using namespace zx::test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kHere[] = "02:00:5e:10:00:01";
constexpr char kThere[] = "00:1b:21:aa:bb:cc";

class FrameBuildTest : public testing::Test {
protected:
    // A decoded segment with 100 bytes of payload.
    void receive() {
        const Bytes bytes = frame(
            "0800 4510008c fffe4123 3f060a0b c0a8010a 0a0000c8"
            "01bbc350 ffffffc0 80000001 5018 1234 beef 0102");
        zxframe_api_doFrame(&record, bytes.data());
    }

    // What was written so far, and that no more was; for the next time nothing is.
    std::string written(int64_t size) {
        EXPECT_EQ(std::count(out.begin() + size, out.end(), 0xAA), ssize(out) - size);
        const std::string text = to_hex(out.data(), static_cast<std::size_t>(size));
        out.assign(out.size(), 0xAA);
        return text;
    }

    LogCapture log;
    ether_ctt record{};
    zxbuildtcp_ctt tcp{kThere,     kHere,      "192.168.1.10",  "10.0.0.200", 443, 50000,
                       0x12345678, 0x9ABCDEF0, ZXFRAME_TCP_SYN, {},           0,   0};
    ether_pkt udp{{}, "02:00:5e:10:00:01", "00:1b:21:aa:bb:cc", "192.168.1.10", "10.0.0.200", 5004,
                  53};
    igmp_req igmp{"01:00:5E:01:02:03", kHere, "192.168.1.10", "239.1.2.3", 2, 2, 1, 0, {}};
    Bytes out = Bytes(66000, 0xAA);
    uint8_t* const to = out.data();
};

TEST_F(FrameBuildTest, AsksEveryoneByArp) {
    record.print_flag = 1;
    EXPECT_EQ(zxframe_api_buildArp(&record, kHere, "192.168.1.10", "192.168.1.1", to), 42);
    EXPECT_EQ(log.take().back(), "[INFO][NETFRAME]target ipaddr:192.168.1.1");
    // Without a destination the record's last one is sent.
    zxframe_innerapi_buildEthrt(&record, nullptr, kThere, 0x88CC, to);
    EXPECT_EQ(to_hex(to, 14), "ffffffffffff001b21aabbcc88cc");
    EXPECT_EQ(log.take()[0], "[ERROR][NETWORK]Param error####pmacstr");
}

TEST_F(FrameBuildTest, BuildsIpv4Headers) {
    for (const auto& [protocol, header] :
         table("6 4500035c03615fff4006528ac0a8010affffffff|17 "
               "4500001f03614000401175bbc0a8010affffffff|"
               "2 4600036003611fff01023c86c0a8010affffffff94040000|"
               "47 400003480361bfff092fffffc0a8010affffffff")) {
        record.ipv4.id = 0xF000;
        record.ipv4.frag_off = 0x1FFF;
        record.ipv4.flags = 5;
        record.ipv4.ttl = 9;
        record.data_len = 3;
        zxframe_innerapi_buildIpv4(&record, static_cast<uint8_t>(std::stoi(protocol)),
                                   "192.168.1.10", "nowhere", 0x10345, to);
        EXPECT_EQ(written(protocol == "2" ? 24 : 20), header);
        EXPECT_EQ(record.ipv4.saddr, inet_addr("192.168.1.10"));
    }
}

TEST_F(FrameBuildTest, BuildsTcpFramesThatLeaveTheirHeaderOut) {
    record.print_flag = 1;
    tcp.option_len = 8;
    EXPECT_EQ(zxframe_api_buildTcp(&record, &tcp, to), 14 + 20 + 28 + 65516);
    const Lines lines = log.take();
    EXPECT_EQ(lines.at(17), "[INFO][NETFRAME]-----ptcpheader_ctt->header_len:7");
    EXPECT_EQ(lines.at(34), "[INFO][NETFRAME]total_len len,ip_header_len,tcp_header_len: 28,5,7");
    EXPECT_EQ(lines.size(), 36U);
    record.print_flag = 0;
    tcp.option_len = 48;  // more than there can be
    zxframe_innerapi_buildTcpPayload(&record, &tcp, to);
    EXPECT_EQ(to[12], 0x10);
}

TEST_F(FrameBuildTest, WritesTheOptionsThatItKnows) {
    const tcp_option odd[] = {{2, 1, {}}, {8, 0, {}}, {0x102, 3, {}}, {28, 2, {}}};
    std::copy(std::begin(odd), std::end(odd), tcp.options + 32);
    for (uint32_t kind = 0; kind < 32; ++kind) {
        tcp.options[kind] = {kind, 3, {0xEE}};
    }
    tcp.option_count = 36;
    EXPECT_EQ(zxframe_innerapi_buildTcpOpt(&tcp, to), 34U);
    EXPECT_EQ(written(34),
              "000102"
              "03ee0303ee0403ee0503ee0603ee0703ee0803ee0903ee0a03ee1c03ee1c02");
}

TEST_F(FrameBuildTest, CountsWhatOthersLeftInALengthOfUdp) {
    std::memcpy(record.data, "abcZ", 4);
    record.data_len = 3;
    EXPECT_EQ(zxframe_api_buildUdp(&record, &udp, to), 45);
    EXPECT_THAT(log.take_dumps(), ElementsAre("Data:616263"));
    // A TCP or IGMP message leaves it where TCP has its data offset.
    receive();
    record.data_len = 10;
    EXPECT_EQ(zxframe_api_buildUdp(&record, &udp, to), 72);
    zxframe_innerapi_buildIgmp(&record, &igmp, to);
    EXPECT_EQ(zxframe_api_buildUdp(&record, &udp, to), 52 + 4 * 3);
}

TEST_F(FrameBuildTest, AnswersASegment) {
    receive();
    record.tcp.reserved_flags = 3;
    record.print_flag = 1;
    EXPECT_EQ(zxframe_api_buildTcpAck(&record, to), 54);
    EXPECT_EQ(written(54),
              "02005e100001001b21aabbcc080045000028012a41233f066d090a0000c8c0a8010a"
              "c35001bb800000010000002450d0ffff9d690000");
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(record.data_len, 0);
    EXPECT_EQ(record.ipv4.saddr, 0x0A0000C8U);
    EXPECT_STREQ(record.str_source_mac, kHere);
}

TEST_F(FrameBuildTest, FinishesTcpFramesWhosePayloadLiesNearItsPlace) {
    zxframe_api_buildTcp(&record, &tcp, to);
    const Bytes payload = noise(65495);
    std::copy(payload.begin(), payload.end(), to + 57);
    EXPECT_EQ(zxframe_api_finishTcp(to, to + 57, 65495), 54 + 65495);
    EXPECT_TRUE(std::equal(payload.begin(), payload.end(), to + 54));
    EXPECT_EQ(zxframe_api_finishTcp(to, to, 65496), -1);
    to[23] = 17;
    EXPECT_EQ(zxframe_api_finishTcp(to, to, 1), -1);
    EXPECT_EQ(log.take(),
              (Lines{"[ERROR][NETFRAME]A payload of 65496 bytes does not fit into an IPv4 packet",
                     "[ERROR][NETFRAME]Param error####frame"}));
}

TEST_F(FrameBuildTest, ChoosesIgmpTypes) {
    // Of each version: the type of a query, join, leave and another, and the type of the record
    // with sources (mode 1) and without.
    const char* const expected[] = {"11-0-0 0-0-0 0-0-0 0-0-0", "11-0-0 12-0-0 0-0-0 0-0-0",
                                    "11-0-0 16-0-0 17-0-0 0-0-0", "11-0-0 22-5-4 22-6-3 0-0-0",
                                    "11-0-0 0-0-0 0-0-0 0-0-0"};
    for (igmp.version = 0; igmp.version < std::size(expected); ++igmp.version) {
        std::ostringstream types;
        for (igmp.action = 1; igmp.action <= 4; ++igmp.action) {
            types << (igmp.action > 1 ? " " : "") << std::hex
                  << zxframe_innerapi_getIgmpType(&igmp);
            for (igmp.mode = 1; igmp.mode <= 2; ++igmp.mode) {
                types << '-' << zxframe_innerapi_getIgmpRecordType(&igmp);
            }
        }
        EXPECT_EQ(types.str(), expected[igmp.version]);
    }
}

TEST_F(FrameBuildTest, BuildsIgmpFrames) {
    const struct {
        uint32_t version, action;
        const char* message;
        const char* dump;
    } cases[] = {
        {2, ZXFRAME_IGMP_JOIN, "1600f8faef010203",
         "8)===============|type :0x16|Max Resp Time:0 sec|Checksum:0xf8fa"},
        {3, ZXFRAME_IGMP_JOIN, "220015500000000105000002ef0102030a000001c0a807fe",
         "24)===============|type :0x22|Reserved :00000|Checksum:0x1550|Reserved :0000|"
         "Num Group Records :1|Record Type:5 sec|Rux Data:0 sec|Num Src:2 sec"},
    };
    std::strcpy(igmp.sources[0], "10.0.0.1");
    std::strcpy(igmp.sources[1], "192.168.7.254");
    igmp.source_count = 2;
    record.print_flag = 1;
    for (const auto& c : cases) {
        igmp.version = c.version;
        igmp.action = c.action;
        const auto size = static_cast<int32_t>(38 + std::strlen(c.message) / 2);
        EXPECT_EQ(zxframe_api_buildIgmp(&record, &igmp, to), size);
        EXPECT_EQ(written(size).substr(68), std::string("94040000") + c.message);
        Lines lines = log.take();
        lines.erase(lines.begin(), lines.begin() + 17);
        EXPECT_EQ(lines, infos("router_alert_type: 148|router_alert_len: 4|router_alert: 0|"
                               "=============== IGMP data info(datalen:" +
                               std::string(c.dump) + "|Multicast Addr:239.1.2.3"));
    }
    igmp.source_count = 129;
    EXPECT_EQ(zxframe_api_buildIgmp(&record, &igmp, to), -1);
    igmp.source_count = 2;
    std::memset(igmp.sources[1], '1', sizeof igmp.sources[1]);
    EXPECT_EQ(zxframe_innerapi_buildIgmp(&record, &igmp, to), 0U);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETFRAME]There are 129 IGMP sources,more than 128",
                                        "[ERROR][NETFRAME]Param error####sources"));
    written(0);
}

TEST_F(FrameBuildTest, RefusesRequestsWithoutAllTexts) {
    const char** const texts[][2] = {{&tcp.str_dest_mac, &igmp.str_dest_mac},
                                     {&tcp.str_source_mac, &igmp.str_source_mac},
                                     {&tcp.source_ip, &igmp.source_ip},
                                     {&tcp.dest_ip, &igmp.group}};
    char* const udp_texts[] = {udp.str_dest_mac, udp.str_source_mac, udp.source_ip, udp.dest_ip};
    const char* const names[] = {"str_dest_mac", "str_source_mac", "source_ip", "dest_ip"};
    const std::string error = "[ERROR][NETFRAME]Param error####";
    for (std::size_t i = 4; i-- > 0;) {  // the first that is missing is named
        *texts[i][0] = *texts[i][1] = nullptr;
        std::memset(udp_texts[i], ' ', ZXFRAME_NAME_SIZE);
        EXPECT_EQ(zxframe_api_buildTcp(&record, &tcp, to), -1);
        EXPECT_EQ(zxframe_api_buildUdp(&record, &udp, to), -1);
        EXPECT_EQ(zxframe_api_buildIgmp(&record, &igmp, to), -1);
        EXPECT_THAT(log.take(), ElementsAre(error + names[i], error + names[i],
                                            error + (i == 3 ? "group" : names[i])));
    }
}

}  // namespace
