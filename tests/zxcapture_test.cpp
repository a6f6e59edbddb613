// The capture tool: what it prints about frames, what it lets pass, and the program with its files.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "bytes.hpp"
#include "files.hpp"
#include "filter/filter.hpp"
#include "internal/bytes.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "show/line.hpp"

namespace {

using capture::Wanted;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zx::test::Bytes;
using zx::test::content_of;
using zx::test::from_hex;

constexpr std::uint32_t kNanos = 123456789;

// Frames go between these two. A test gives addresses and ports in hexadecimal digits.
const std::string kMacA = "02:00:00:00:00:0a";
const std::string kMacB = "02:00:00:00:00:0b";
const std::string kMacs = "02000000000b 02000000000a";

Bytes ipv4(const std::string& protocol, const std::string& addresses,
           const std::string& transport) {
    Bytes frame =
        from_hex(kMacs + "0800 45000000 13610000 40" + protocol + "0000" + addresses + transport);
    zx::store_be16(&frame[16], static_cast<std::uint16_t>(frame.size() - 14));
    return frame;
}

// From ::1 to ::2.
Bytes ipv6(const std::string& protocol, const std::string& transport) {
    const std::string zeros(30, '0');
    Bytes frame = from_hex(kMacs + "86dd 60000000 0000" + protocol + "40" + zeros + "01" + zeros +
                           "02" + transport);
    zx::store_be16(&frame[18], static_cast<std::uint16_t>(frame.size() - 54));
    return frame;
}

Bytes tcp(const std::string& addresses, const std::string& ports) {
    return ipv4("06", addresses, ports + "00000000 00000000 50100000 00000000");
}

// A copy of `frame` with `bytes` at the position `at`.
Bytes with(Bytes frame, std::size_t at, const Bytes& bytes) {
    std::copy(bytes.begin(), bytes.end(), frame.begin() + static_cast<std::ptrdiff_t>(at));
    return frame;
}

const std::string kSegment = "a8ca 0050 00000000 00000000 6002 0000 00000000 020405b4";
const std::string kDatagram = "14e9 0035 0012 0000 61207175657374696f6e";  // "a question"
const Bytes kSyn = ipv4("06", "c0a8010a 0a000001", kSegment);
const Bytes kQuery = ipv4("11", "0a000002 0a000003", kDatagram);
const Bytes kStream =  // a packet of a transport stream
    ipv4("11", "0a000002 0a000003", "14e9 0035 00c4 0000 471fff10" + std::string(368, '0'));
const Bytes kArp = from_hex(
    "ffffffffffff 02000000000a 0806 000108000604 0001 02000000000a 0a000001 000000000000 "
    "0a000002");

capture::Frame as_frame(const Bytes& bytes, std::size_t captured = SIZE_MAX) {
    return {{bytes.data(), std::min(captured, bytes.size())},
            static_cast<std::uint32_t>(bytes.size()),
            {1700000000, kNanos}};
}

class CaptureLine : public testing::Test {
protected:
    // The line without its time, and with single blanks.
    std::string line(const Bytes& bytes, std::size_t captured = SIZE_MAX) {
        const capture::Frame frame = as_frame(bytes, captured);
        const std::string text(printer.print(frame, capture::dissect(frame)));
        EXPECT_THAT(text, testing::AllOf(StartsWith("22:13:20.123456 "), EndsWith("\n")));
        std::string plain = text.substr(16, text.size() - 17);
        const auto are_blanks = [](char a, char b) { return a == ' ' && b == ' '; };
        plain.erase(std::unique(plain.begin(), plain.end(), are_blanks), plain.end());
        return plain.substr(plain.find_first_not_of(' '));
    }

    zx::test::LogCapture log{0};
    capture::Line printer{{.utc = true}};
};

TEST_F(CaptureLine, ShowsWhatIsThereOfEveryKindOfFrame) {
    const Bytes data = ipv4("06", "01020304 05060708",
                            "0001 0002 00000000 00000000 5018 0000 00000000 68656c6c6f");
    const Bytes lan = from_hex(kMacs, 60);
    const Bytes syn6 = ipv6("06", kSegment);
    const std::string zeros(26, '0');
    const std::string kIps = "0a000001 0a000002";
    const std::string kPair = "10.0.0.1 > 10.0.0.2 ";
    const std::string kSolicits = "neighbour solicitation to fe80::1";
    const auto solicit = [&](const std::string& option) {
        return ipv6("3a", "8700 0000 00000000 fe80" + zeros + "01" + option);
    };
    const std::string macs = kMacA + " > " + kMacB + " ";
    const std::string to_all = kMacA + " > ff:ff:ff:ff:ff:ff ";
    const struct {
        Bytes frame;
        std::string line;
        std::size_t captured = SIZE_MAX;
    } cases[] = {
        {kSyn, "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN]"},
        {data, "1.2.3.4:1 > 5.6.7.8:2 TCP 59 [PSH ACK] payload 5"},
        {with(data, 47, {0}), "1.2.3.4:1 > 5.6.7.8:2 TCP 59 [none] payload 5"},
        {kQuery, "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 payload 10"},
        // The interface will segment this one.
        {with(kSyn, 16, {0, 0}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN]"},
        {kArp, to_all + "ARP 42 who has 10.0.0.2? tell 10.0.0.1"},
        {with(kArp, 21, {2}), to_all + "ARP 42 10.0.0.1 is at " + kMacA},
        {with(kSyn, 23, {1}), "192.168.1.10 > 10.0.0.1 ICMP 58 type 168 code 202"},
        {with(kSyn, 23, {253}), "192.168.1.10 > 10.0.0.1 IP/253 58"},
        {with(kSyn, 23, {4}), "192.168.1.10 > 10.0.0.1 IP/4 58 IPIP tunnels"},
        {with(kSyn, 20, {0x20, 0}),
         "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] first fragment of id 4961"},
        {with(kSyn, 20, {0x20, 2}), "192.168.1.10 > 10.0.0.1 TCP 58 fragment at 16 of id 4961"},
        {syn6, "[::1]:43210 > [::2]:80 TCP 78 [SYN]"},
        {ipv6("11", kDatagram), "[::1]:5353 > [::2]:53 UDP 72 payload 10"},
        {ipv6("3a", kSegment), "::1 > ::2 ICMPv6 78 type 168 code 202"},
        {ipv6("fd", kSegment), "::1 > ::2 IP6/253 78"},
        {with(lan, 12, {0, 38}), macs + "802.3 60 length 38"},
        {with(lan, 12, {0x88, 0xB5}), macs + "0x88b5 60"},
        {with(lan, 12, {0x81, 0, 0x20, 0x64, 8, 6}),
         macs + "ARP 60 vlan 100 operation 0, not for IPv4 on Ethernet"},
        {with(lan, 12, {0x88, 0x47}), macs + "0x8847 60 MPLS <unicast>"},
        // Messages and groups.
        {ipv4("01", kIps, "0800 0000 0007 0009"), kPair + "ICMP 42 echo request id 7 sequence 9"},
        {ipv4("01", kIps, "0304 0000 0000 05dc"),
         kPair + "ICMP 42 unreachable: fragmentation needed, at most 1500"},
        {ipv4("02", kIps, "1600 0000 e0010203"), kPair + "IGMP 42 v2 join 224.1.2.3"},
        {ipv4("02", kIps, "1100 0000 00000000 02000000"), kPair + "IGMP 46 v3 query"},
        {ipv4("02", kIps,
              "2200 0000 0000 0004 0400 0000 e0010101 0300 0000 e0010102"
              "0500 0001 e0010103 0a000001 0200 0000 e0010104"),
         kPair + "IGMP 78 v3 join 224.1.1.1 (to exclude), leave 224.1.1.2 (to include),"
                 " join 224.1.1.3 (allow, 1 source), join 224.1.1.4 (exclude)"},
        {ipv4("02", kIps, "2200 0000 0000 0002 0400 0000 e0010101"),
         kPair + "IGMP 50 v3 join 224.1.1.1 (to exclude) malformed"},
        {ipv4("02", kIps, "2200 0000 0000 0001 0400 0001 e0010101 0a000001"),
         kPair + "IGMP 54 v3 join 224.1.1.1 (to exclude, 1 source) truncated: 53 of 54 bytes", 53},
        {solicit("0101 020000000001"), "::1 > ::2 ICMPv6 86 " + kSolicits},
        {solicit("0100 020000000001"), "::1 > ::2 ICMPv6 86 " + kSolicits + " malformed"},
        {solicit("0102 020000000001"), "::1 > ::2 ICMPv6 86 " + kSolicits + " malformed"},
        {solicit("0101 020000000001"),
         "::1 > ::2 ICMPv6 86 " + kSolicits + " truncated: 85 of 86 bytes", 85},
        {with(kSyn, 54, {2, 5}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {ipv6("3a", "8400 0000 0000 0000 ff0e" + zeros + "01"),
         "::1 > ::2 ICMPv6 78 MLDv1 leave ff0e::1"},
        // RTP, with a tag inside a tag.
        {with(from_hex(kMacs, 64), 12,
              from_hex("88a8 2064 8100 0005 0800 45000028 00000000 40110000" + kIps +
                       "138c 138c 0014 0000 80a1 0102 00000304 00000005")),
         "10.0.0.1:5004 > 10.0.0.2:5004 UDP 64 vlan 100 vlan 5 payload 12 RTP type 33 MP2T marked"
         " sequence 258 time 772"},
        // Headers that contradict each other.
        {with(kSyn, 14, {0x44}), "192.168.1.10 > 10.0.0.1 TCP 58 malformed"},
        {with(kSyn, 16, {0, 39}), "192.168.1.10 > 10.0.0.1 TCP 58 malformed"},
        {with(kSyn, 16, {0, 99}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {with(ipv4("01", kIps, "0800 0000 0007 0009"), 16, {0, 99}),
         kPair + "ICMP 42 echo request id 7 sequence 9 malformed"},
        {with(kSyn, 16, {0, 99, 0, 0, 0x20, 2}),
         "192.168.1.10 > 10.0.0.1 TCP 58 fragment at 16 of id 0 malformed"},
        {with(kSyn, 46, {0x70}), "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] malformed"},
        {with(kQuery, 38, {0, 19}), "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 malformed"},
        {with(kQuery, 38, {0, 7}), "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 malformed"},
        // Frames that end within a header, and captures that end just before or after one.
        {from_hex(kMacs, 13), "? > ? ? 13 malformed"},
        {Bytes(kSyn.begin(), kSyn.begin() + 33), macs + "IPv4 33 malformed"},
        {Bytes(kSyn.begin(), kSyn.begin() + 33), macs + "IPv4 33 malformed", 20},
        {Bytes(kArp.begin(), kArp.begin() + 41), to_all + "ARP 41 malformed"},
        {kSyn, "? > ? ? 58 truncated: 13 of 58 bytes", 13},
        {kSyn, macs + "IPv4 58 truncated: 14 of 58 bytes", 14},
        {kSyn, macs + "IPv4 58 truncated: 33 of 58 bytes", 33},
        {kSyn, "192.168.1.10 > 10.0.0.1 TCP 58 truncated: 34 of 58 bytes", 34},
        {kSyn, "192.168.1.10 > 10.0.0.1 TCP 58 truncated: 53 of 58 bytes", 53},
        {kSyn, "192.168.1.10:43210 > 10.0.0.1:80 TCP 58 [SYN] truncated: 54 of 58 bytes", 54},
        {kQuery, "10.0.0.2 > 10.0.0.3 UDP 52 truncated: 41 of 52 bytes", 41},
        {syn6, macs + "IPv6 78 truncated: 53 of 78 bytes", 53},
        {syn6, "::1 > ::2 TCP 78 truncated: 54 of 78 bytes", 54},
        {syn6, "::1 > ::2 TCP 78 truncated: 73 of 78 bytes", 73},
        {syn6, "[::1]:43210 > [::2]:80 TCP 78 [SYN] truncated: 74 of 78 bytes", 74},
        {kArp, to_all + "ARP 42 truncated: 41 of 42 bytes", 41},
        {kQuery, "10.0.0.2:5353 > 10.0.0.3:53 UDP 52 payload 10", 42},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(line(c.frame, c.captured), c.line);
    }
}

TEST_F(CaptureLine, ShowsMoreOfEveryLayerOnRequest) {
    capture::Line verbose({.clock = capture::Clock::none}, {.verbose = true, .link = true});
    const auto ends = [&](const Bytes& bytes, const std::string& end) {
        const capture::Frame frame = as_frame(bytes);
        EXPECT_THAT(std::string(verbose.print(frame, capture::dissect(frame))),
                    EndsWith(end + "\n"));
    };
    ends(with(kSyn, 20, {0x40, 0}),
         " [SYN] ttl 64 id 4961 dscp 0 DF IP checksum wrong seq 0 win 0 mss 1460 checksum wrong");
    EXPECT_THAT(std::string(verbose.print(as_frame(kArp), capture::dissect(as_frame(kArp)))),
                StartsWith(kMacA + " > ff:ff:ff:ff:ff:ff 0x0806 "));
    ends(kQuery, " payload 10 ttl 64 id 4961 dscp 0 IP checksum wrong no checksum");
}

bool passes(const capture::Filter& filter, const capture::Frame& frame) {
    return filter.passes(frame, capture::dissect(frame));
}

TEST(CaptureFilter, LetsPassWhatIsAskedForAndNothingElse) {
    const zx::test::LogCapture log(0);
    const Bytes frames[] = {
        tcp("c0a8010a 0a000001", "0050 1388"),  // 192.168.1.10:80 to 10.0.0.1:5000
        tcp("c0a80101 0a00000a", "1388 0050"),  // 192.168.1.1:5000 to 10.0.0.10:80
        ipv4("11", "5ca8010a 0a000001", "0050 0035 0009 0000 78"),  // 92.168.1.10:80, 10.0.0.1:53
        // A later fragment whose first bytes look like ports.
        with(tcp("c0a8010a 0a000001", "0050 0050"), 20, {0, 9}),
        kArp,
        ipv6("06", kSegment),
    };
    const struct {
        Wanted wanted;
        std::vector<std::size_t> passing;
    } cases[] = {
        {{}, {0, 1, 2, 3, 4, 5}},
        {{.ip = {"192.168.1.10"}}, {0, 3}},
        {{.ip = {"92.168.1.10", "192.168.1.1"}}, {1, 2}},
        {{.source_ip = {"192.168.1.10", "92.168.1.10"}, .dest_ip = {"10.0.0.1"}}, {0, 2, 3}},
        {{.dest_ip = {"10.0.0.10"}}, {1}},
        {{.port = 80}, {0, 1, 2, 5}},
        {{.source_port = 80, .dest_port = 53}, {2}},
        {{.protocol = "tcp"}, {0, 1, 3, 5}},
        {{.protocol = "tcp", .dest_ip = {"10.0.0.1", "10.0.0.10"}, .source_port = 80}, {0}},
        {{.mac = {kMacB}}, {0, 1, 2, 3, 5}},
        {{.source_mac = {"00:00:00:00:00:00", kMacA}, .dest_mac = {"ff:ff:ff:ff:ff:ff"}}, {4}},
        {{.dest_mac = {kMacB}, .port = 5000}, {0, 1}},
    };
    for (const auto& c : cases) {
        const capture::Filter filter(c.wanted);
        std::vector<std::size_t> passing;
        for (std::size_t i = 0; i < std::size(frames); ++i) {
            if (passes(filter, as_frame(frames[i]))) {
                passing.push_back(i);
            }
        }
        EXPECT_EQ(passing, c.passing) << "case " << &c - cases;
    }
    // The zeros after the captured bytes are no ports and no addresses.
    EXPECT_FALSE(passes(capture::Filter({.ip = {"0.0.0.0"}}), as_frame(kSyn, 20)));
    EXPECT_FALSE(passes(capture::Filter({.mac = {"00:00:00:00:00:00"}}), as_frame(kSyn, 5)));
    EXPECT_FALSE(passes(capture::Filter({.source_port = 43210}), as_frame(kSyn, 40)));
}

class CaptureProgram : public testing::Test {
protected:
    CaptureProgram() { setenv("TZ", "UTC", 1); }

    // Writes a capture file with nanoseconds byte by byte.
    std::string write(const std::string& name, const std::vector<Bytes>& frames) const {
        std::ofstream file(folder + name, std::ios::binary);
        const auto put = [&](const auto& items) {
            file.write(reinterpret_cast<const char*>(items.data()),
                       static_cast<std::streamsize>(items.size() * sizeof items[0]));
        };
        put(std::array{0xA1B23C4DU});
        put(std::array<std::uint16_t, 2>{2, 4});
        put(std::array{0U, 0U, 256U << 10U, 1U});
        for (const Bytes& frame : frames) {
            const auto size = static_cast<std::uint32_t>(frame.size());
            put(std::array{1700000000U, kNanos, size, size});
            put(frame);
        }
        return folder + name;
    }

    // Runs the program and returns its exit code. `out` and `err` are its output. `after` follows
    // the program in the shell command.
    int run(const std::string& arguments, const std::string& after = "") {
        zx::test::Process program("set -o pipefail; { '" ZX_CAPTURE "' " + arguments + "; } " +
                                  after + " >" + folder + "out");
        const int code = program.wait();
        out = content_of(folder + "out");
        err = program.errors();
        return code;
    }

    const zx::test::Folder own;
    const std::string folder = own.path() + "/";
    std::string out, err;
};

TEST_F(CaptureProgram, ShowsAFileAndWritesWhatPasses) {
    const std::string all = write("all", {kSyn, kQuery, kArp, kSyn});
    EXPECT_EQ(run("-r " + all + " --date"), 0);
    EXPECT_THAT(out,
                StartsWith("2023-11-14 22:13:20.123456    192.168.1.10:43210 > 10.0.0.1:80  "));
    EXPECT_EQ(err, "frames: 4 seen, 4 passed, 210 bytes: TCP 2, ARP 1, UDP 1\n");

    EXPECT_EQ(run("-r " + all + " --port 80 --count 1 -w " + folder + "part"), 0);
    EXPECT_EQ(content_of(folder + "part"), content_of(write("expected", {kSyn})));
    EXPECT_EQ(run("-r - -w - <" + all), 0);
    EXPECT_EQ(out, content_of(all));
    const std::string mac = " --source-mac 02:00:00:00:00:0A";
    EXPECT_EQ(run("-q -r " + all + mac + " --ip 10.0.0.11,10.0.0.1 --protocol TCP"), 0);
    EXPECT_EQ(out, "frames: 4 seen, 2 passed, 116 bytes: TCP 2\n");
}

TEST_F(CaptureProgram, DumpsFieldsWithTheFramesOwnPayload) {
    const Bytes brief = ipv4("11", "01010101 02020202", "0001 0002 000d 0000 73686f7274");
    EXPECT_EQ(run("--dump -r " + write("file", {kQuery, brief, with(kSyn, 20, {0x60, 2})})), 0);
    for (const char* const part :
         {"payload 10\n    ============  FRAME  ============\n",
          "\n    Data: 10 bytes\n    00000000: 61 20 71 75 65 73 74 69 6f 6e",
          "\n    Flags: DF MF\n    Fragment offset: 16\n",
          "\n    Data: 5 bytes\n    00000000: 73 68 6f 72 74   "}) {
        EXPECT_THAT(out, HasSubstr(part));
    }
    EXPECT_THAT(out, Not(HasSubstr("TCP Header")));  // the fragment has none
}

TEST_F(CaptureProgram, ShowsWhatIsThereOfAFileThatBreaksOff) {
    const std::string path = write("file", {kSyn, kQuery, kSyn});
    std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
    EXPECT_EQ(run("-r " + path), 1);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 2);
    EXPECT_THAT(err, StartsWith("frames: 2 seen, 2 passed"));
    EXPECT_THAT(err, HasSubstr("\nzxcapture: " + path + " ends early: "));
}

TEST_F(CaptureProgram, EndsQuietlyWithItsReaderAndLoudlyWithAFullDisk) {
    const std::string path = write("file", std::vector<Bytes>(5000, kSyn));
    EXPECT_EQ(run("-r " + path + " -w " + folder + "part", "| head -n 1"), 0);
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1);
    EXPECT_EQ(err, "");
    EXPECT_GE(content_of(folder + "part").size(), 500 * kSyn.size());  // as far as it has come
    for (const char* const option : {">/dev/full", "-q >/dev/full", "-q -w /dev/full",
                                     "-D >/dev/full", "--list-fields >/dev/full"}) {
        EXPECT_EQ(run("-r " + path + " " + option), 1);
        EXPECT_THAT(err, HasSubstr("zxcapture: cannot write "));
    }
}

TEST_F(CaptureProgram, ExtractsAStream) {
    const Bytes fragment = with(kStream, 20, {0x20, 0x00});
    const std::string path = write("file", {fragment, kStream, kStream});
    const std::string before = content_of(path);
    const std::string extract = "-r " + path + " --extract 10.0.0.3:53 -w ";
    EXPECT_EQ(run(extract + path), 1);
    EXPECT_THAT(err, HasSubstr("while reading from it"));
    EXPECT_EQ(content_of(path), before);
    EXPECT_EQ(run(extract + "-"), 0);
    EXPECT_EQ(out.size(), 2 * 188);
    EXPECT_EQ(out.substr(188), before.substr(before.size() - 188));
    EXPECT_THAT(err, StartsWith("10.0.0.3:53: 2 packets written, 1 datagrams in fragments left"));
}

// Real files of many kinds, some of them broken.
TEST_F(CaptureProgram, DumpsEveryRealFrame) {
    const char* const captures = std::getenv("ZX_CAPTURES");
    if (captures == nullptr) {
        GTEST_SKIP() << "ZX_CAPTURES is not set";
    }
    int frames = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(captures)) {
        EXPECT_LE(run("--dump -r '" + entry.path().string() + "'", "| tail -n 1"), 1);
        frames += err.starts_with("frames: ") ? std::stoi(err.substr(8)) : 0;
        EXPECT_THAT(err, Not(HasSubstr("Sanitizer")));
    }
    EXPECT_GT(frames, 10000);
}

TEST_F(CaptureProgram, AnswersMistakesWithOneSentence) {
    const std::string file = write("file", {kSyn});
    const std::string reading = "-r " + file;
    write("ring0", {kSyn});
    std::ofstream(folder + "text") << "this is no capture file, but it is long enough for one";
    std::string other = content_of(file);
    const std::uint32_t wireless = 105;  // IEEE 802.11
    std::memcpy(&other[20], &wireless, sizeof wireless);
    std::ofstream(folder + "other") << other;
    const std::pair<std::string, const char*> cases[] = {
        {"", "give a capture file (--read FILE) or an interface (--interface NAME)"},
        {reading + " -i lo", "--read excludes --interface"},
        {"-r /nonexistent/file", "cannot read /nonexistent/file: No such file"},
        {"-r " + folder + "text", "text: unknown file format"},
        {"-r " + folder + "other",
         "other contains neither Ethernet frames nor IP packets: its link type is 802.11"},
        {"-i nowhere0", "there is no network interface nowhere0"},
        {reading + " --ip 10.0.0.1,10.0.0", "'10.0.0' is not an IP address"},
        {reading + " --mac 1:2:3:4:5:6", "'1:2:3:4:5:6' is not a MAC address"},
        {reading + " --port 65536", "--port: Value 65536 not in range"},
        {reading + " -c -1", "'-1' is not a number from 1 to 18446744073709551615"},
        {reading + " -c 99999999999999999999999", "is not a number from 1"},
        {reading + " --ip 1.1.1.1 --dest-ip 1.1.1.1", "--ip excludes --dest-ip"},
        {reading + " -w " + file, "while reading from it"},
        {"-r " + folder + "ring0 -C 1 -W 2 -w " + folder + "ring", "while reading from it"},
        {reading + " udp prot 5", "cannot filter by 'udp prot 5': syntax error"},
        {"-i any --promiscuous", "--promiscuous excludes --interface any"},
        {reading + " -W 2 -w part", "--file-count needs --file-size or --file-seconds"},
        {reading + " -w part -G 5", "--file-seconds needs a time such as %H%M%S"},
        {reading + " -w - -C 1", "--write - is one file"},
        {reading + " -w %H -C 1 -G 5 -W 2", "--file-count excludes one of"},
        {reading + " -w /nonexistent/file", "cannot write /nonexistent/file: No such file"},
    };
    for (const auto& [arguments, sentence] : cases) {
        zx::test::expect_complaint(ZX_CAPTURE, arguments, sentence);
    }
    EXPECT_EQ(content_of(file), content_of(write("same", {kSyn})));
}

}  // namespace
