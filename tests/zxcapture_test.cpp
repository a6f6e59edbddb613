// The capture tool: what it says of frames, what it lets pass, and the program with its files.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/failure.hpp"
#include "decoder.hpp"
#include "internal/bytes.hpp"
#include "line.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "source.hpp"

namespace {

using capture::Decoder;
using capture::Wanted;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zx::test::Process;
using Bytes = std::vector<std::uint8_t>;
using Texts = std::vector<std::string>;

constexpr char kMacA[] = "02:00:00:00:00:0a";
constexpr char kMacB[] = "02:00:00:00:00:0b";
constexpr long kNanos = 123456789;

Bytes tcp(const char* source_ip, std::uint16_t source, const char* dest_ip, std::uint16_t dest,
          std::uint32_t flags, const std::string& payload = "") {
    ether_ctt record{};
    zxbuildtcp_ctt request{};
    request.str_source_mac = kMacA;
    request.str_dest_mac = kMacB;
    request.source_ip = source_ip;
    request.dest_ip = dest_ip;
    request.source = source;
    request.dest = dest;
    request.flags = flags;
    request.option_len = 4;
    request.option_count = 1;
    request.options[0] = {2, 4, {0x05, 0xb4}};
    Bytes frame(58 + payload.size());
    zxframe_api_buildTcp(&record, &request, frame.data());
    zxframe_api_finishTcp(frame.data(), reinterpret_cast<const std::uint8_t*>(payload.data()),
                          static_cast<std::uint32_t>(payload.size()));
    return frame;
}

Bytes udp(const char* source_ip, std::uint16_t source, const char* dest_ip, std::uint16_t dest,
          const std::string& payload) {
    ether_ctt record{};
    ether_pkt request{};
    std::strcpy(request.str_source_mac, kMacA);
    std::strcpy(request.str_dest_mac, kMacB);
    std::strcpy(request.source_ip, source_ip);
    std::strcpy(request.dest_ip, dest_ip);
    request.source = source;
    request.dest = dest;
    record.data_len = static_cast<std::uint16_t>(payload.size());
    std::copy(payload.begin(), payload.end(), record.data);
    Bytes frame(42);
    zxframe_api_buildUdp(&record, &request, frame.data());
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}

Bytes arp(std::uint8_t operation) {
    ether_ctt record{};
    Bytes frame(42);
    zxframe_api_buildArp(&record, kMacA, "10.0.0.1", "10.0.0.2", frame.data());
    frame[21] = operation;
    return frame;
}

// `frame` with `bytes` at `at`, extended where that is needed.
Bytes with(Bytes frame, std::size_t at, const Bytes& bytes) {
    frame.resize(std::max(frame.size(), at + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<std::ptrdiff_t>(at));
    return frame;
}

// The TCP or UDP packet in `frame` in IPv6 instead, from ::1 to ::2.
Bytes in_ipv6(const Bytes& frame) {
    Bytes packet = with(frame, 12, {0x86, 0xDD, 0x60, 0, 0, 0});
    packet.insert(packet.begin() + 34, 20, 0);
    std::fill(packet.begin() + 18, packet.begin() + 54, std::uint8_t{0});
    zx::store_be16(&packet[18], static_cast<std::uint16_t>(frame.size() - 34));
    packet[20] = frame[23];
    packet[37] = 1;
    packet[53] = 2;
    return packet;
}

const Bytes kSyn = tcp("192.168.1.10", 43210, "10.0.0.1", 80, ZXFRAME_TCP_SYN);
const Bytes kQuery = udp("10.0.0.2", 5353, "10.0.0.3", 53, "a question");
const Bytes kPing = with(kSyn, 23, {1});

capture::Frame as_frame(const Bytes& bytes, std::size_t captured = SIZE_MAX) {
    return {{bytes.data(), std::min(captured, bytes.size())},
            static_cast<std::uint32_t>(bytes.size()),
            {1700000000, kNanos}};
}

// Decodes one frame behind another, so that fields of an earlier frame would be seen.
class CaptureLine : public testing::Test {
protected:
    // Without the time, blanks in a row as one.
    std::string line(const Bytes& bytes, std::size_t captured = SIZE_MAX) {
        const capture::Frame frame = as_frame(bytes, captured);
        EXPECT_TRUE(decoder.passes(frame));
        const std::string text(printer.print(frame, decoder.record(), decoder.layers()));
        EXPECT_THAT(text, testing::AllOf(StartsWith("22:13:20.123456 "), EndsWith("\n")));
        std::string plain;
        for (const char c : text.substr(16, text.size() - 17)) {
            if (c != ' ' || (!plain.empty() && plain.back() != ' ')) {
                plain += c;
            }
        }
        return plain;
    }

    zx::test::LogCapture log{0};
    Decoder decoder{Wanted{}};
    capture::Line printer{{.utc = true}};
};

TEST_F(CaptureLine, ShowsEveryKindOfFrame) {
    const Bytes data = tcp("1.2.3.4", 1, "5.6.7.8", 2, ZXFRAME_TCP_PSH | ZXFRAME_TCP_ACK, "hello");
    const Bytes lan = with(Bytes(60), 0, {2, 0, 0, 0, 0, 11, 2, 0, 0, 0, 0, 10});
    const std::string macs = "02:00:00:00:00:0a > 02:00:00:00:00:0b ";
    const struct {
        Bytes frame;
        std::string line;
    } cases[] = {
        {kSyn, "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN]"},
        {data, "1.2.3.4:1 > 5.6.7.8:2 TCP 63 [PSH ACK] payload 5"},
        {with(data, 60 - 13, {0}), "1.2.3.4:1 > 5.6.7.8:2 TCP 63 [none] payload 5"},
        {kQuery, "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 payload 10"},
        {with(kSyn, 16, {0, 0}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN]"},  // to be cut up
        {arp(1), "02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff ARP 42 who has 10.0.0.2? tell 10.0.0.1"},
        {arp(2),
         "02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff ARP 42 10.0.0.1 is at " + std::string(kMacA)},
        {kPing, "192.168.1.10 > 10.0.0.1 ICMP 58"},
        {with(kSyn, 23, {253}), "192.168.1.10 > 10.0.0.1 IP/253 58"},
        {with(kSyn, 23, {4}), "192.168.1.10 > 10.0.0.1 IP/4 58 IPIP tunnels"},
        {with(kSyn, 20, {0x20, 0}),
         "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] first fragment of id 4961"},
        {with(kSyn, 20, {0x20, 2}), "192.168.1.10 > 10.0.0.1 TCP 58 fragment at 16 of id 4961"},
        {in_ipv6(kSyn), "[::1]:43210 > [::2]:80 TCP 78 [SYN]"},
        {in_ipv6(kQuery), "[::1]:5353 > [::2]:53 UDP 72 payload 10"},
        {with(in_ipv6(kSyn), 20, {58}), "::1 > ::2 ICMPv6 78"},
        {with(in_ipv6(kSyn), 20, {0}), "::1 > ::2 IP6/0 78"},
        {with(lan, 12, {0, 38}), macs + "802.3 60 length 38"},
        {with(lan, 12, {0x88, 0xB5}), macs + "0x88b5 60"},
        {with(lan, 12, {0x88, 0xCC}), macs + "LLDP 60"},
        {with(lan, 12, {0x81, 0, 0x20, 0x64, 8, 0}), macs + "0x8100 60 vlan 100, type 0x0800"},
        {with(lan, 12, {0x88, 0x47}), macs + "0x8847 60 MPLS <unicast>"},
        // Headers that contradict each other.
        {with(kSyn, 14, {0x44}), "192.168.1.10 > 10.0.0.1 TCP 58 malformed"},
        {with(kSyn, 16, {0, 39}), "192.168.1.10 > 10.0.0.1 TCP 58 malformed"},
        {with(kSyn, 16, {0, 99}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {with(kSyn, 46, {0x40}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {with(kSyn, 46, {0x70}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {with(kQuery, 38, {0, 7}), "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 malformed"},
        {with(kQuery, 38, {0, 19}), "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 malformed"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(line(c.frame), c.line);
    }
}

TEST_F(CaptureLine, ShowsOfAFrameThatIsCutShortOnlyWhatIsThere) {
    const std::string macs = "02:00:00:00:00:0a > 02:00:00:00:00:0b ";
    const struct {
        Bytes frame;
        std::size_t network;    // bytes from which on there are addresses
        std::size_t transport;  // and ports
        std::size_t whole;      // and nothing is missing
        Texts lines;            // for these, and before
    } cases[] = {
        {kSyn,
         34,
         54,
         58,
         {macs + "IPv4 58", "192.168.1.10 > 10.0.0.1 TCP 58",
          "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN]"}},
        {kQuery,
         34,
         42,
         42,
         {macs + "IPv4 52", "10.0.0.2 > 10.0.0.3 UDP 52",
          "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 payload 10"}},
        {in_ipv6(kSyn),
         54,
         74,
         78,
         {macs + "IPv6 78", "::1 > ::2 TCP 78", "[::1]:43210 > [::2]:80 TCP 78 [SYN]"}},
        {arp(1), 42, 42, 42, {"02:00:00:00:00:0a > ff:ff:ff:ff:ff:ff ARP 42", "", line(arp(1))}},
    };
    const Bytes earlier = tcp("9.9.9.9", 999, "8.8.8.8", 888, ZXFRAME_TCP_FIN, "x");
    for (const auto& c : cases) {
        for (std::size_t size = 0; size <= c.frame.size(); ++size) {
            SCOPED_TRACE(size);
            line(earlier);
            std::string expected = size < 14          ? "? > ? ? " + std::to_string(c.frame.size())
                                   : size < c.network ? c.lines[0]
                                   : size < c.transport ? c.lines[1]
                                                        : c.lines[2];
            if (size < c.whole) {
                expected += " truncated: " + std::to_string(size) + " of " +
                            std::to_string(c.frame.size()) + " bytes";
            }
            ASSERT_EQ(line(c.frame, size), expected);
        }
    }
}

TEST(CaptureFilter, LetsPassWhatIsAskedForAndNothingElse) {
    const zx::test::LogCapture log(0);
    const Bytes frames[] = {
        tcp("192.168.1.10", 80, "10.0.0.1", 5000, ZXFRAME_TCP_ACK),
        tcp("192.168.1.1", 5000, "10.0.0.10", 80, ZXFRAME_TCP_ACK),
        udp("92.168.1.10", 80, "10.0.0.1", 53, "x"),
        // A later fragment whose first bytes look like ports.
        with(tcp("192.168.1.10", 80, "10.0.0.1", 80, 0), 20, {0, 9}),
        with(kSyn, 23, {1}),
        arp(1),
        in_ipv6(kSyn),
        with(tcp("10.0.0.1", 1, "192.168.1.10", 2, 0), 0, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}),
    };
    const struct {
        Wanted wanted;
        std::vector<int> passing;
    } cases[] = {
        {{}, {0, 1, 2, 3, 4, 5, 6, 7}},
        {{.ip = {"192.168.1.10"}}, {0, 3, 4, 7}},
        {{.ip = {"192.168.1.1"}}, {1}},
        {{.ip = {"92.168.1.10", "192.168.1.1"}}, {1, 2}},
        {{.source_ip = {"192.168.1.10", "92.168.1.10"}, .dest_ip = {"10.0.0.1"}}, {0, 2, 3, 4}},
        {{.dest_ip = {"10.0.0.10"}}, {1}},
        {{.port = 80}, {0, 1, 2}},
        {{.source_port = 80}, {0, 2}},
        {{.source_port = 80, .dest_port = 53}, {2}},
        {{.protocol = "tcp"}, {0, 1, 3, 7}},
        {{.protocol = "udp", .port = 80}, {2}},
        {{.protocol = "tcp", .dest_ip = {"10.0.0.1", "10.0.0.10"}, .source_port = 80}, {0}},
        {{.mac = {kMacB}}, {0, 1, 2, 3, 4, 6}},
        {{.source_mac = {"00:00:00:00:00:00", kMacA}, .dest_mac = {"ff:ff:ff:ff:ff:ff"}}, {5, 7}},
        {{.dest_mac = {kMacB}, .port = 5000}, {0, 1}},
    };
    for (const auto& c : cases) {
        Decoder decoder(c.wanted);
        std::vector<int> passing;
        for (int i = 0; i < static_cast<int>(std::size(frames)); ++i) {
            if (decoder.passes(as_frame(frames[i]))) {
                passing.push_back(i);
            }
        }
        EXPECT_EQ(passing, c.passing) << "case " << &c - cases;
    }
    // Zeros behind the captured bytes are no ports and no addresses.
    EXPECT_FALSE(Decoder({.ip = {"0.0.0.0"}}).passes(as_frame(kSyn, 20)));
    EXPECT_FALSE(Decoder({.mac = {"00:00:00:00:00:00"}}).passes(as_frame(kSyn, 5)));
    EXPECT_FALSE(Decoder({.source_port = 43210}).passes(as_frame(kSyn, 40)));
}

// Real files of many kinds, broken ones among them: every frame gets a line and a dump.
TEST(CaptureFiles, AreReadToTheirEnd) {
    const char* const folder = std::getenv("ZX_CAPTURES");
    if (folder == nullptr) {
        GTEST_SKIP() << "ZX_CAPTURES is not set";
    }
    zx::test::LogCapture log(4);
    Decoder decoder{Wanted{}};
    capture::Line printer{{}};
    std::uint64_t frames = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        try {
            const auto source = capture::open_file(entry.path(), "");
            capture::Frame frame;
            for (; source->next(frame) == capture::Got::frame; ++frames) {
                EXPECT_TRUE(decoder.passes(frame));
                EXPECT_THAT(std::string(printer.print(frame, decoder.record(), decoder.layers())),
                            EndsWith("\n"));
                decoder.dump(frame);
            }
        } catch (const tools::Failure& failure) {
            EXPECT_THAT(failure.what(), HasSubstr(" "));
        }
        log.take();
        log.take_dumps();
    }
    EXPECT_GT(frames, 10000U);
}

void put32(std::ofstream& file, std::uint32_t value) {
    file.write(reinterpret_cast<const char*>(&value), sizeof value);
}

std::string content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class CaptureProgram : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zxcapture_test.XXXXXX";
        folder = std::string(mkdtemp(name)) + "/";
        setenv("TZ", "UTC", 1);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    // A capture file with nanoseconds, written here byte by byte.
    std::string write(const std::string& name, const std::vector<Bytes>& frames) const {
        std::ofstream file(folder + name, std::ios::binary);
        for (const std::uint32_t word : {0xA1B23C4DU, 0x00040002U, 0U, 0U, 256U << 10U, 1U}) {
            put32(file, word);
        }
        std::uint32_t second = 1700000000;
        for (const Bytes& frame : frames) {
            put32(file, second++);
            put32(file, kNanos);
            put32(file, static_cast<std::uint32_t>(frame.size()));
            put32(file, static_cast<std::uint32_t>(frame.size()));
            file.write(reinterpret_cast<const char*>(frame.data()),
                       static_cast<std::streamsize>(frame.size()));
        }
        return folder + name;
    }

    // Runs the program; its exit code. `out` and `err` are what it said.
    int run(const std::string& arguments, const std::string& behind = "") {
        Process program({"/bin/sh", "-c",
                         "{ '" ZX_CAPTURE "' " + arguments + " 2>" + folder + "err; echo $? >" +
                             folder + "code; } " + behind + " >" + folder + "out"});
        program.wait();
        out = content(folder + "out");
        err = content(folder + "err");
        return std::atoi(content(folder + "code").c_str());
    }

    std::string folder;
    std::string out;
    std::string err;
};

TEST_F(CaptureProgram, ShowsAFileAndWritesWhatPasses) {
    const std::string all = write("all", {kSyn, kQuery, arp(1), kSyn});
    EXPECT_EQ(run("-r " + all + " --date"), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4);
    EXPECT_THAT(out,
                StartsWith("2023-11-14 22:13:20.123456    192.168.1.10:43210 > 10.0.0.1:80  "));
    EXPECT_EQ(err, "frames: 4 seen, 4 passed, 210 bytes: TCP 2, ARP 1, UDP 1\n");

    EXPECT_EQ(run("-r " + all + " --port 80 --count 1 -w " + folder + "part"), 0);
    EXPECT_EQ(content(folder + "part"), content(write("expected", {kSyn})));
    EXPECT_EQ(run("-r - -w - <" + all), 0);
    EXPECT_EQ(out, content(all));
    EXPECT_EQ(run("-q -r " + all + " --ip 10.0.0.11,10.0.0.1 --protocol TCP"), 0);
    EXPECT_EQ(out, "frames: 4 seen, 2 passed, 116 bytes: TCP 2\n");
    EXPECT_EQ(run("-q -r " + all + " --source-mac 02:00:00:00:00:0A --protocol udp"), 0);
    EXPECT_THAT(out, HasSubstr(" 1 passed"));
}

TEST_F(CaptureProgram, DumpsFieldsWithTheFramesOwnPayload) {
    EXPECT_EQ(run("--dump -r " + write("file", {kQuery, udp("1.1.1.1", 1, "2.2.2.2", 2, "short"),
                                                with(kSyn, 20, {0x20, 2})})),
              0);
    EXPECT_THAT(out, HasSubstr("payload 10\n    ============  FRAME  ============\n"));
    EXPECT_THAT(out, HasSubstr("\n    Source : 10.0.0.2\n"));
    EXPECT_THAT(out,
                HasSubstr("\n    Data: 10 bytes\n    00000000: 61 20 71 75 65 73 74 69 6f 6e"));
    EXPECT_THAT(out, HasSubstr("\n    Data: 5 bytes\n    00000000: 73 68 6f 72 74   "));
    EXPECT_THAT(out, Not(HasSubstr("TCP Header")));  // of the fragment
    EXPECT_THAT(out, Not(HasSubstr("\r")));
}

TEST_F(CaptureProgram, ShowsWhatIsThereOfAFileThatBreaksOff) {
    const std::string path = write("file", {kSyn, kQuery, kSyn});
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    EXPECT_EQ(run("-r " + path), 1);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
    EXPECT_THAT(err, HasSubstr("2 seen, 2 passed"));
    EXPECT_THAT(err, HasSubstr("\nzxcapture: " + path + " breaks off: "));
}

TEST_F(CaptureProgram, EndsQuietlyWithItsReaderAndLoudlyWithAFullDisk) {
    const std::string path = write("file", std::vector<Bytes>(5000, kSyn));
    EXPECT_EQ(run("-r " + path, "| head -n 1"), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
    EXPECT_EQ(err, "");
    for (const char* const option : {">/dev/full", "-q >/dev/full", "-q -w /dev/full"}) {
        EXPECT_EQ(run("-r " + path + " " + option), 1);
        EXPECT_THAT(err, HasSubstr("zxcapture: cannot write "));
    }
}

TEST_F(CaptureProgram, AnswersMistakesWithOneSentence) {
    const std::string file = write("file", {kSyn});
    std::ofstream(folder + "text") << "this is no capture file, but it is long enough for one";
    std::string other = content(file);
    other[20] = 101;  // raw IP
    std::ofstream(folder + "other") << other;
    const struct {
        std::string arguments;
        std::string sentence;
    } cases[] = {
        {"", "give a capture file (--read FILE) or an interface (--interface NAME)"},
        {"-r " + file + " -i lo", "--read excludes --interface"},
        {"-r /nonexistent/file", "cannot read /nonexistent/file: No such file"},
        {"-r " + folder + "text", "text: unknown file format"},
        {"-r " + folder + "other", "other holds no Ethernet frames: its link type is Raw IP"},
        {"-i nowhere0", "there is no network interface nowhere0"},
        {"-r " + file + " --ip 10.0.0", "'10.0.0' is no IPv4 address"},
        {"-r " + file + " --source-ip 10.0.0.1,::1", "'::1' is no IPv4 address"},
        {"-r " + file + " --mac 1:2:3:4:5:6", "'1:2:3:4:5:6' is no MAC address"},
        {"-r " + file + " --protocol icmp", "--protocol: icmp not in {tcp,udp}"},
        {"-r " + file + " --port 65536", "--port: Value 65536 not in range"},
        {"-r " + file + " --dest-port -1", "--dest-port: Value -1 not in range"},
        {"-r " + file + " --ip 1.1.1.1 --dest-ip 1.1.1.1", "--ip excludes --dest-ip"},
        {"-r " + file + " -w " + file, "while it is read"},
        {"-r " + file + " -w /nonexistent/file", "cannot write /nonexistent/file: No such file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.arguments);
        EXPECT_GT(run(c.arguments), 0);
        EXPECT_THAT(err, testing::AllOf(StartsWith("zxcapture: "), HasSubstr(c.sentence)));
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
    }
    EXPECT_EQ(content(file), content(write("same", {kSyn})));
}

}  // namespace
