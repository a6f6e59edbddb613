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
    filter.has_mac = filter.has_ip = 0;
    EXPECT_EQ(zxframe_api_filterFrame(this, nullptr, &filter), 0);
    log.take();
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
