#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <tuple>
#include <type_traits>

#include "frames.hpp"
#include "log_capture.hpp"

namespace {

using namespace zx::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kHere[] = "02:00:5e:10:00:01";
constexpr char kThere[] = "00:1b:21:aa:bb:cc";

// What RFC 9293 sums, with the pseudo-header, for the addresses of a frame: 0 when that is right.
uint16_t tcp_checksum(const Bytes& bytes) {
    const auto size = static_cast<uint16_t>(bytes.size() - 34);
    Bytes whole(bytes.begin() + 26, bytes.end());
    const uint8_t middle[] = {0, 6, static_cast<uint8_t>(size >> 8U), static_cast<uint8_t>(size)};
    whole.insert(whole.begin() + 8, std::begin(middle), std::end(middle));
    return textbook_checksum(whole.data(), whole.size());
}

class FrameBuildTest : public testing::Test {
protected:
    FrameBuildTest() {
        *tcp = {kThere,     kHere,      "192.168.1.10",  "10.0.0.200", 443, 50000,
                0x12345678, 0x9ABCDEF0, ZXFRAME_TCP_SYN, {},           0,   0};
        *igmp = {"01:00:5E:01:02:03", kHere, "192.168.1.10", "239.1.2.3", 2, 2, 1, 0, {}};
        std::memset(udp->unused, 'x', sizeof udp->unused);
        std::strcpy(udp->str_source_mac, kHere);
        std::strcpy(udp->str_dest_mac, kThere);
        std::strcpy(udp->source_ip, "192.168.1.10");
        std::strcpy(udp->dest_ip, "10.0.0.200");
        udp->source = 5004;
        udp->dest = 53;
    }

    // A decoded segment with 100 bytes of payload.
    void receive() {
        zxframe_api_doFrame(record.get(), frame("0800 4510008c fffe4123 3f060a0b c0a8010a 0a0000c8"
                                                "01bbc350 ffffffc0 80000001 5018 1234 beef 0102")
                                              .data());
    }

    void set_options(const std::vector<tcp_option>& options, uint32_t bytes) {
        std::copy(options.begin(), options.end(), tcp->options);
        tcp->option_count = static_cast<uint32_t>(options.size());
        tcp->option_len = bytes;
    }

    // What was written so far, and that no more was; for the next time nothing is.
    std::string written(int64_t size) {
        EXPECT_EQ(std::count(out.begin() + size, out.end(), 0xAA), ssize(out) - size);
        const std::string text = to_hex(out.data(), static_cast<std::size_t>(size));
        out.assign(out.size(), 0xAA);
        return text;
    }

    // Which arguments are named as missing, when those from each on are, and the result.
    template <class Result, class... Params>
    std::string refusals(Result (*function)(Params...), std::type_identity_t<Params>... args) {
        std::string names;
        int64_t result = 0;
        for (std::size_t present = 0; present < sizeof...(Params); ++present) {
            std::size_t i = 0;
            const auto pick = [&](auto arg) { return i++ < present ? arg : decltype(arg){}; };
            const std::tuple<Params...> given{pick(args)...};
            if constexpr (std::is_void_v<Result>) {
                std::apply(function, given);
            } else {
                result = std::apply(function, given);
            }
            for (const auto& line : log.take()) {
                const std::string name = line.substr(line.rfind('#') + 1) + " ";
                EXPECT_EQ(line + " ", "[ERROR][NETFRAME]Param error####" + name);
                names += names.ends_with(name) ? "" : name;
            }
        }
        return names + std::to_string(result);
    }

    LogCapture log;
    std::unique_ptr<ether_ctt> record = std::make_unique<ether_ctt>();
    std::unique_ptr<zxbuildtcp_ctt> tcp = std::make_unique<zxbuildtcp_ctt>();
    std::unique_ptr<ether_pkt> udp = std::make_unique<ether_pkt>();
    std::unique_ptr<igmp_req> igmp = std::make_unique<igmp_req>();
    Bytes out = Bytes(66000, 0xAA);
    uint8_t* const to = out.data();
};

TEST_F(FrameBuildTest, AsksEveryoneByArp) {
    record->print_flag = 1;
    EXPECT_EQ(zxframe_api_buildArp(record.get(), kHere, "192.168.1.10", "192.168.1.1", to), 42);
    EXPECT_EQ(written(42),
              "ffffffffffff02005e10000108060001080006040001"
              "02005e100001c0a8010affffffffffffc0a80101");
    EXPECT_EQ(log.take().back(), "[INFO][NETFRAME]target ipaddr:192.168.1.1");
    EXPECT_EQ(record->arp.target_ip, inet_addr("192.168.1.1"));
    // Without a destination the record's last one is sent.
    zxframe_innerapi_buildEthrt(record.get(), nullptr, kThere, 0x88CC, to);
    EXPECT_EQ(written(14), "ffffffffffff001b21aabbcc88cc");
    EXPECT_EQ(log.take()[0], "[ERROR][NETWORK]Param error####pmacstr");
}

TEST_F(FrameBuildTest, BuildsIpv4Headers) {
    for (const auto& [protocol, header] :
         table("6 4500035c03615fff4006528ac0a8010affffffff|17 "
               "4500001f03614000401175bbc0a8010affffffff|"
               "2 4600036003611fff01023c86c0a8010affffffff94040000|"
               "47 400003480361bfff092fffffc0a8010affffffff")) {
        record->ipv4.id = 0xF000;
        record->ipv4.frag_off = 0x1FFF;
        record->ipv4.flags = 5;
        record->ipv4.ttl = 9;
        record->data_len = 3;
        zxframe_innerapi_buildIpv4(record.get(), static_cast<uint8_t>(std::stoi(protocol)),
                                   "192.168.1.10", "nowhere", 0x10345, to);
        EXPECT_EQ(written(protocol == "2" ? 24 : 20), header);
        EXPECT_EQ(record->ipv4.saddr, inet_addr("192.168.1.10"));
    }
}

TEST_F(FrameBuildTest, BuildsTcpFrames) {
    set_options({{2, 4, {5, 0xB4}}, {1, 0, {}}, {3, 3, {7}}}, 8);
    record->print_flag = 1;
    EXPECT_EQ(zxframe_api_buildTcp(record.get(), tcp.get(), to), 14 + 20 + 28 + 65516);
    EXPECT_EQ(written(62),
              "001b21aabbcc02005e10000108004500001c1361400040065b01c0a8010a0a0000c8"
              "01bbc350123456789abcdef07002faf066f60000020405b401030307");
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), 36U);
    EXPECT_EQ(lines[17], "[INFO][NETFRAME]-----ptcpheader_ctt->header_len:7");
    EXPECT_EQ(lines[34], "[INFO][NETFRAME]total_len len,ip_header_len,tcp_header_len: 28,5,7");

    record->print_flag = 0;
    set_options({}, 0);
    for (const int size : {0, 20, 100}) {
        record->data_len = static_cast<uint16_t>(size);
        EXPECT_EQ(zxframe_api_buildTcp(record.get(), tcp.get(), to), size == 0 ? 65570 : 34 + size);
        EXPECT_EQ(record->ipv4.total_len, 20 + size);
        EXPECT_EQ(record->data_len, static_cast<uint16_t>(size - 20));
    }
    EXPECT_EQ(record->ipv4.id, 4 * 4961);
    for (unsigned bit = 0; bit < 6; ++bit) {
        tcp->flags = 1U << bit;
        zxframe_innerapi_buildTcpPayload(record.get(), tcp.get(), to);
        EXPECT_EQ(to[13], 0x20U >> bit);
    }
    EXPECT_THAT(log.take(), IsEmpty());
    tcp->option_len = 6;
    zxframe_innerapi_buildTcpPayload(record.get(), tcp.get(), to);
    EXPECT_EQ(to[12], 0x60);
    tcp->option_len = 48;
    zxframe_innerapi_buildTcpPayload(record.get(), tcp.get(), to);
    EXPECT_EQ(to[12], 0x10);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][NETFRAME]Header Length(4) is less than 20,maybe error"));
}

TEST_F(FrameBuildTest, WritesTheOptionsThatItKnows) {
    std::vector<tcp_option> options{{2, 1, {}}, {8, 0, {}}, {0x102, 3, {}}, {28, 2, {}}};
    for (uint32_t kind = 0; kind < 32; ++kind) {
        options.push_back({kind, 3, {0xEE}});
    }
    set_options(options, 0);
    EXPECT_EQ(zxframe_innerapi_buildTcpOpt(tcp.get(), to), 34U);
    EXPECT_EQ(written(34),
              "1c02000102"
              "03ee0303ee0403ee0503ee0603ee0703ee0803ee0903ee0a03ee1c03ee");
    set_options(std::vector<tcp_option>(128, {5, 255, {}}), 0);
    tcp->option_count = 200;
    EXPECT_EQ(zxframe_innerapi_buildTcpOpt(tcp.get(), to), 128U * 255);
}

TEST_F(FrameBuildTest, BuildsUdpFrames) {
    std::memcpy(record->data, "0123456789", 10);
    record->data_len = 10;
    record->ipv4.frag_off = 7;
    EXPECT_EQ(zxframe_api_buildUdp(record.get(), udp.get(), to), 52);
    EXPECT_EQ(written(42),
              "001b21aabbcc02005e1000010800450000261361400040115aecc0a8010a0a0000c8"
              "138c003500121a85");
    std::memcpy(record->data, "abcZ", 4);
    record->data_len = 3;
    EXPECT_EQ(zxframe_api_buildUdp(record.get(), udp.get(), to), 45);
    EXPECT_EQ(written(42),
              "001b21aabbcc02005e10000108004500001f26c2400040114792c0a8010a0a0000c8"
              "138c0035000b5ae0");
    EXPECT_THAT(log.take_dumps(), ElementsAre("Data:30313233343536373839", "Data:616263"));
    // The length counts what a TCP or IGMP message has left where TCP has its data offset.
    receive();
    record->data_len = 10;
    EXPECT_EQ(zxframe_api_buildUdp(record.get(), udp.get(), to), 72);
    zxframe_innerapi_buildIgmp(record.get(), igmp.get(), to);
    EXPECT_EQ(zxframe_api_buildUdp(record.get(), udp.get(), to), 52 + 4 * 3);
}

TEST_F(FrameBuildTest, AnswersASegment) {
    receive();
    record->tcp.reserved_flags = 3;
    record->print_flag = 1;
    EXPECT_EQ(zxframe_api_buildTcpAck(record.get(), to), 54);
    EXPECT_EQ(written(54),
              "02005e100001001b21aabbcc080045000028012a41233f066d090a0000c8c0a8010a"
              "c35001bb800000010000002450d0ffff9d690000");
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_EQ(record->data_len, 0);
    EXPECT_EQ(record->ipv4.saddr, 0x0A0000C8U);
    EXPECT_STREQ(record->str_source_mac, kHere);

    *record = {};
    receive();
    std::memcpy(record->data, "hello!", 6);
    record->data_len = 5;
    EXPECT_EQ(zxframe_api_buildTcpData(record.get(), to), 59);
    EXPECT_EQ(written(54),
              "001b21aabbcc02005e10000108004500002d012a41233f066d04c0a8010a0a0000c8"
              "01bbc350ffffffc0800000015018ffff5aad0000");
    EXPECT_EQ(record->data_len, 5);
    EXPECT_EQ(record->ipv4.saddr, 0xC0A8010AU);
}

TEST_F(FrameBuildTest, FinishesTcpFramesForTheWire) {
    for (const uint32_t option_len : {0U, 4U, 40U}) {
        for (const uint32_t size : {0U, 1U, 2U, 1459U, 65494U - option_len, 65495U - option_len}) {
            SCOPED_TRACE(std::to_string(option_len) + " + " + std::to_string(size));
            set_options(std::vector<tcp_option>(option_len, {1, 0, {}}), option_len);
            out.assign(66000, 0xAA);
            zxframe_api_buildTcp(record.get(), tcp.get(), to);
            Bytes expected(out.begin(), out.begin() + 54 + option_len);
            for (uint32_t i = 0; i < size; ++i) {
                expected.push_back(static_cast<uint8_t>(i * 7 + i / 256));
            }
            // The payload comes from elsewhere, or lies nearly where it belongs.
            const Bytes payload(expected.end() - size, expected.end());
            std::copy(payload.begin(), payload.end(), to + 57 + option_len);
            const uint8_t* const from = size % 2 == 0 ? payload.data() : to + 57 + option_len;
            ASSERT_EQ(zxframe_api_finishTcp(to, size == 0 ? nullptr : from, size),
                      static_cast<int32_t>(expected.size()));
            const Bytes sent(to, to + expected.size());
            EXPECT_EQ(sent[16] * 256U + sent[17], sent.size() - 14);
            EXPECT_EQ(textbook_checksum(&sent[14], 20), 0);
            EXPECT_EQ(tcp_checksum(sent), 0);
            for (const std::size_t at : {16U, 17U, 24U, 25U, 50U, 51U}) {
                expected[at] = sent[at];
            }
            EXPECT_EQ(sent, expected);
        }
    }
    Bytes bad = packet("06", tcp_header("5010"));
    bad.resize(out.size());
    const auto expect_refusal = [&](std::size_t at, uint8_t value, uint32_t size) {
        const uint8_t good = std::exchange(bad[at], value);
        const Bytes before = bad;
        EXPECT_EQ(zxframe_api_finishTcp(bad.data(), to, size), -1) << at << ": " << size;
        EXPECT_EQ(bad, before);
        EXPECT_THAT(log.take(), ElementsAre(StartsWith("[ERROR][NETFRAME]")));
        bad[at] = good;
    };
    expect_refusal(12, 0x86, 0);
    expect_refusal(14, 0x44, 0);
    expect_refusal(23, 17, 0);
    expect_refusal(46, 0x40, 0);
    expect_refusal(14, 0x45, 65496);
    expect_refusal(46, 0x60, 65492);
    expect_refusal(14, 0x45, 0xFFFFFFFF);
}

TEST_F(FrameBuildTest, ChoosesIgmpTypes) {
    // The type, and record types of mode 1 and another, of each query, join, leave and unknown.
    const std::vector<uint32_t> expected[] = {{0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                              {0x11, 0, 0, 0x12, 0, 0, 0, 0, 0, 0, 0, 0},
                                              {0x11, 0, 0, 0x16, 0, 0, 0x17, 0, 0, 0, 0, 0},
                                              {0x11, 0, 0, 0x22, 5, 4, 0x22, 6, 3, 0, 0, 0},
                                              {0x11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}};
    for (igmp->version = 0; igmp->version < std::size(expected); ++igmp->version) {
        std::vector<uint32_t> types;
        for (igmp->action = 1; igmp->action <= 4; ++igmp->action) {
            types.push_back(zxframe_innerapi_getIgmpType(igmp.get()));
            for (igmp->mode = 1; igmp->mode <= 2; ++igmp->mode) {
                types.push_back(zxframe_innerapi_getIgmpRecordType(igmp.get()));
            }
        }
        EXPECT_EQ(types, expected[igmp->version]);
    }
}

TEST_F(FrameBuildTest, BuildsIgmpFrames) {
    const struct {
        uint32_t version, action;
        uint16_t sources;
        const char* ipv4;
        const char* message;
        const char* dump;
    } cases[] = {
        {2, 2, 2, "460000201361000001025ec0", "1600f8faef010203",
         "8)===============|type :0x16|Max Resp Time:0 sec|Checksum:0xf8fa"},
        {3, 1, 2, "460000281361000001025eb8", "1100fdfaef010203",
         "8)===============|type :0x11|Max Resp Time:0 sec|Checksum:0xfdfa"},
        {1, 3, 0, "460000201361000001025ec0", "00000efbef010203",
         "8)===============|type :0x00|Max Resp Time:0 sec|Checksum:0x0efb"},
        {3, 2, 2, "460000281361000001025eb8", "220015500000000105000002ef0102030a000001c0a807fe",
         "24)===============|type :0x22|Reserved :00000|Checksum:0x1550|Reserved :0000|"
         "Num Group Records :1|Record Type:5 sec|Rux Data:0 sec|Num Src:2 sec"},
    };
    std::strcpy(igmp->sources[0], "10.0.0.1");
    std::strcpy(igmp->sources[1], "192.168.7.254");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.message);
        *record = {};
        record->print_flag = 1;
        igmp->version = c.version;
        igmp->action = c.action;
        igmp->source_count = c.sources;
        const auto size = static_cast<int32_t>(38 + std::strlen(c.message) / 2);
        EXPECT_EQ(zxframe_api_buildIgmp(record.get(), igmp.get(), to), size);
        EXPECT_EQ(written(size), std::string("01005e01020302005e1000010800") + c.ipv4 +
                                     "c0a8010aef01020394040000" + c.message);
        const Lines expected =
            infos(std::string("router_alert_type: 148|router_alert_len: 4|router_alert: 0|"
                              "=============== IGMP data info(datalen:") +
                  c.dump + "|Multicast Addr:239.1.2.3");
        Lines lines = log.take();
        lines.erase(lines.begin(), lines.begin() + 17);
        lines.resize(std::min(lines.size(), expected.size()));  // sources may follow
        EXPECT_EQ(lines, expected);
    }
    EXPECT_EQ(record->igmp.group, 0xEF010203U);

    igmp->source_count = 128;
    igmp->action = ZXFRAME_IGMP_LEAVE;
    igmp->mode = 2;
    EXPECT_EQ(zxframe_api_buildIgmp(record.get(), igmp.get(), to), 54 + 4 * 128);
    EXPECT_EQ(to[46], 3);
    EXPECT_EQ(textbook_checksum(to + 38, 16 + 4 * 128), 0);
    written(54 + 4 * 128);
    igmp->action = 4;
    EXPECT_EQ(zxframe_api_buildIgmp(record.get(), igmp.get(), to), 38);
    written(38);
    igmp->source_count = 129;
    igmp->action = 2;
    log.take();
    EXPECT_EQ(zxframe_api_buildIgmp(record.get(), igmp.get(), to), -1);
    EXPECT_EQ(zxframe_innerapi_buildIgmp(record.get(), igmp.get(), to), 0U);
    EXPECT_THAT(log.take(), testing::Each(StartsWith("[ERROR][NETFRAME]")));
    written(0);
}

TEST_F(FrameBuildTest, SumsNoMoreThanTheRecordHolds) {
    receive();
    record->data_len = 65535;
    record->data[ZXFRAME_DATA_SIZE - 1] = 1;
    // The length in the pseudo-header is that which is claimed, or that which is summed.
    const auto sum = [&](std::string hex) {
        Bytes whole = from_hex(hex);
        whole.insert(whole.end(), record->data, std::end(record->data));
        return textbook_checksum(whole.data(), whole.size());
    };
    const std::string header(40, 'a');
    EXPECT_THAT(zxframe_api_tcpChecksum(record.get(), to),
                testing::AnyOf(sum("0a01a8c0 c800000a 0006 0013" + header),
                               sum("0a01a8c0 c800000a 0006 354e" + header)));
    EXPECT_THAT(zxframe_api_udpChecksum(record.get(), to),
                testing::AnyOf(sum("c0a8010a 0a0000c8 0006 0007 01bbc350ffc0ffff"),
                               sum("c0a8010a 0a0000c8 0006 3542 01bbc350ffc0ffff")));
}

TEST_F(FrameBuildTest, RefusesMissingArguments) {
    ether_ctt* const r = record.get();
    receive();
    const std::string before = to_hex(r, sizeof *r);
    log.take();
    EXPECT_EQ(refusals(zxframe_innerapi_parseEthrt, r, to), "pether_ctt peth 0");
    EXPECT_EQ(refusals(zxframe_innerapi_buildEthrt, r, kThere, kHere, 0, to),
              "pether_ctt str_source_mac outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_parseIpv4, r, to), "pether_ctt iph 0");
    EXPECT_EQ(refusals(zxframe_innerapi_buildIpv4, r, 6, "1.1.1.1", "1.1.1.1", 0, to),
              "pether_ctt source_ip dest_ip outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_parseArp, r, to), "pether_ctt parp 0");
    for (auto* const decode :
         {zxframe_innerapi_doIpv4, zxframe_innerapi_doIpv6, zxframe_innerapi_doTcp,
          zxframe_innerapi_doUdp, zxframe_innerapi_doArp}) {
        EXPECT_EQ(refusals(decode, r, to), "pether_ctt data 0");
    }
    EXPECT_EQ(refusals(zxframe_innerapi_parseTcpOpt, r, to, to), "pether_ctt iph 0");
    const auto parse_tcp = [](ether_ctt* in, const uint8_t* at) {
        zxframe_innerapi_parseTcp(in, at, at);
    };
    const auto parse_udp = [](ether_ctt* in, const uint8_t* at) {
        zxframe_innerapi_parseUdp(in, at, nullptr);
    };
    EXPECT_EQ(refusals(+parse_tcp, r, to), "pether_ctt iph 0");
    EXPECT_EQ(refusals(+parse_udp, r, to), "pether_ctt iph 0");
    EXPECT_EQ(refusals(zxframe_innerapi_buildTcpOpt, tcp.get(), to), "pzxbuildtcp_ctt outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_buildTcpPayload, r, tcp.get(), to),
              "pether_ctt pzxbuildtcp_ctt tcph 0");
    EXPECT_EQ(refusals(zxframe_innerapi_buildUdpPayload, r, udp.get(), to),
              "pether_ctt pether_pkt udph 0");
    EXPECT_EQ(refusals(zxframe_api_doFrame, r, to), "pether_ctt frame_buf -1");
    EXPECT_EQ(refusals(zxframe_api_is_ipArp, r), "pether_ctt 0");
    EXPECT_EQ(refusals(zxframe_api_isTcp, r), "pether_ctt 0");
    EXPECT_EQ(zxframe_api_is_IparpOrIpaddr(nullptr, "1.1.1.1", "1.1.1.1"), 0);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETFRAME]Param error####pether_ctt"));
    EXPECT_EQ(refusals(zxframe_api_isTcp_dTos_ack, r, ""), "pether_ctt filter_destip 0");
    EXPECT_EQ(refusals(zxframe_api_isTcp_dTos_close, r, ""), "pether_ctt filter_destip 0");
    EXPECT_EQ(refusals(zxframe_api_isTcp_sTod_data, r, ""), "pether_ctt filter_srcip 0");
    EXPECT_EQ(refusals(zxframe_api_buildArp, r, kHere, "1.1.1.1", "1.1.1.1", to),
              "pether_ctt str_source_mac outbuf 0");
    EXPECT_EQ(refusals(zxframe_api_buildTcpAck, r, to), "pether_ctt pether_pkt -1");
    EXPECT_EQ(refusals(zxframe_api_buildTcpData, r, to), "pether_ctt pether_pkt -1");
    EXPECT_EQ(refusals(zxframe_api_buildTcp, r, tcp.get(), to), "pether_ctt pether_pkt outbuf -1");
    EXPECT_EQ(refusals(zxframe_api_buildUdp, r, udp.get(), to), "pether_ctt pether_pkt outbuf -1");
    EXPECT_EQ(refusals(zxframe_api_buildIgmp, r, igmp.get(), to), "pether_ctt pether_pkt -1");
    EXPECT_EQ(zxframe_api_buildIgmp(r, nullptr, to), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETFRAME]Param error####req"));
    EXPECT_EQ(refusals(zxframe_innerapi_buildIgmp, r, igmp.get(), to), "pether_ctt req outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_getIgmpData1, r, &r->igmp, to), "pether_ctt view outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_getIgmpData2, r, &r->igmp, to), "pether_ctt view outbuf 0");
    EXPECT_EQ(refusals(zxframe_innerapi_getIgmpType, igmp.get()), "req 0");
    EXPECT_EQ(refusals(zxframe_innerapi_getIgmpRecordType, igmp.get()), "req 0");
    EXPECT_EQ(refusals(zxframe_api_tcpChecksum, r, to), "65535");
    EXPECT_EQ(refusals(zxframe_api_udpChecksum, r, to), "65535");
    EXPECT_EQ(zxframe_api_finishTcp(nullptr, nullptr, 0), -1);
    EXPECT_EQ(zxframe_api_finishTcp(to, nullptr, 1), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETFRAME]Param error####frame",
                                        "[ERROR][NETFRAME]Param error####payload"));
    EXPECT_EQ(to_hex(r, sizeof *r), before);
    written(0);
}

TEST_F(FrameBuildTest, RefusesRequestsWithoutAllTexts) {
    const char** const tcp_texts[] = {&tcp->str_dest_mac, &tcp->str_source_mac, &tcp->source_ip,
                                      &tcp->dest_ip};
    const char** const igmp_texts[] = {&igmp->str_dest_mac, &igmp->str_source_mac, &igmp->source_ip,
                                       &igmp->group};
    char* const udp_texts[] = {udp->str_dest_mac, udp->str_source_mac, udp->source_ip,
                               udp->dest_ip};
    const char* const names[] = {"str_dest_mac", "str_source_mac", "source_ip", "dest_ip", "group"};
    const std::string error = "[ERROR][NETFRAME]Param error####";
    for (std::size_t i = 0; i < 4; ++i) {
        const char* const tcp_text = std::exchange(*tcp_texts[i], nullptr);
        const char* const igmp_text = std::exchange(*igmp_texts[i], nullptr);
        std::replace(udp_texts[i], udp_texts[i] + ZXFRAME_NAME_SIZE, '\0', ' ');
        EXPECT_EQ(zxframe_api_buildTcp(record.get(), tcp.get(), to), -1);
        EXPECT_EQ(zxframe_api_buildIgmp(record.get(), igmp.get(), to), -1);
        EXPECT_EQ(zxframe_api_buildUdp(record.get(), udp.get(), to), -1);
        EXPECT_THAT(log.take(), ElementsAre(error + names[i], error + names[i == 3 ? 4 : i],
                                            StartsWith("[ERROR][NETFRAME]")));
        *tcp_texts[i] = tcp_text;
        *igmp_texts[i] = igmp_text;
        udp_texts[i][ZXFRAME_NAME_SIZE - 1] = '\0';
    }
    EXPECT_EQ(record->ether_type + record->ipv4.id, 0);
    written(0);
}

}  // namespace
