// The relay as its users meet it: a process between sockets; and its two parts that are worth a
// closer look.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>

#include "channel.hpp"
#include "internal/guard.hpp"
#include "log_capture.hpp"
#include "loopback.hpp"
#include "net.hpp"
#include "packetizer.hpp"
#include "process.hpp"
#include "source.hpp"
#include "stats.hpp"
#include "worker.hpp"

namespace {

using relay::kPacketSize;
using namespace zx::test;

Bytes sample() {
    std::ifstream file(ZX_SAMPLE, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

class RelayTest : public testing::Test {
protected:
    void start(const std::string& scheme, const std::vector<std::string>& more = {}) {
        in_port = free_port(scheme == "udp" ? SOCK_DGRAM : SOCK_STREAM);
        out_port = free_port(SOCK_STREAM);
        std::vector<std::string> args = {ZX_RELAY, "--input",
                                         scheme + "://127.0.0.1:" + std::to_string(in_port),
                                         "--output", "127.0.0.1:" + std::to_string(out_port)};
        args.insert(args.end(), more.begin(), more.end());
        relay.emplace(args);
        ASSERT_TRUE(relay->says("relaying")) << relay->errors();
    }

    int join() {
        const int fd = connected(SOCK_STREAM, out_port);
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
        EXPECT_TRUE(relay->says("client 127.0.0.1:" + std::to_string(ntohs(address.sin_port)) +
                                " has connected"));
        return fd;
    }

    int in_port = 0;
    int out_port = 0;
    std::optional<Process> relay;
};

TEST_F(RelayTest, GivesEveryClientTheStreamUnharmed) {
    start("tcp", {"--once"});
    const zx::UniqueFd first(join());
    const zx::UniqueFd second(join());
    zx::UniqueFd source(connected(SOCK_STREAM, in_port));
    send_all(source.get(), sample());
    source.reset();
    EXPECT_EQ(receive_all(first.get()), sample());
    EXPECT_EQ(receive_all(second.get()), sample());
    EXPECT_EQ(relay->wait(), 0);
}

TEST_F(RelayTest, TakesDatagramsAndLeavesOutWhatIsNoStream) {
    start("udp");
    const zx::UniqueFd client(join());
    const zx::UniqueFd source(connected(SOCK_DGRAM, in_port));
    Bytes stream = sample();
    stream.resize(20 * relay::kMessageSize);
    send_all(source.get(), Bytes(100, 'x'));
    for (std::size_t at = 0; at < stream.size(); at += relay::kMessageSize) {
        ASSERT_GT(send(source.get(), stream.data() + at, relay::kMessageSize, 0), 0);
    }
    EXPECT_EQ(receive_all(client.get(), stream.size()), stream);
    relay->signal(SIGTERM);
    EXPECT_EQ(relay->wait(), 0);
    EXPECT_THAT(relay->errors(), testing::HasSubstr("100 bytes of the source are no transport"));
}

TEST_F(RelayTest, ASlowClientCostsOnlyItself) {
    start("tcp", {"--once", "--stall", "1", "--client-buffer", "128k"});
    const zx::UniqueFd slow(join());
    const zx::UniqueFd quick(join());
    const zx::UniqueFd vanishing(join());
    Bytes stream;
    for (int i = 0; i < 40; ++i) {
        const Bytes part = sample();
        stream.insert(stream.end(), part.begin(), part.end());
    }
    shutdown(vanishing.get(), SHUT_RDWR);
    zx::UniqueFd source(connected(SOCK_STREAM, in_port));
    constexpr std::size_t kStep = 40 * relay::kMessageSize;  // the quick client keeps up with it
    stream.resize(stream.size() / kStep * kStep);
    for (std::size_t at = 0; at < stream.size(); at += kStep) {
        const Bytes step(stream.data() + at, stream.data() + at + kStep);
        send_all(source.get(), step);
        ASSERT_EQ(receive_all(quick.get(), kStep), step) << "at " << at;
    }
    source.reset();

    EXPECT_EQ(relay->wait(), 0);
    EXPECT_THAT(relay->errors(), testing::HasSubstr("takes nothing any more"));
    const Bytes part = receive_all(slow.get());
    EXPECT_LT(part.size(), stream.size());
    for (std::size_t at = 0; at < part.size(); at += kPacketSize) {
        ASSERT_EQ(part[at], 0x47) << "torn packet at " << at;
    }
}

TEST_F(RelayTest, EndsAtOnceOnSignalsAndTakesSourcesOneAfterTheOther) {
    start("tcp");
    const zx::UniqueFd client(join());
    Bytes whole;
    for (int i = 0; i < 3; ++i) {
        Bytes part = sample();
        part.resize(relay::kMessageSize * 3 + kPacketSize + 5);  // ends within a packet
        send_all(zx::UniqueFd(connected(SOCK_STREAM, in_port)).get(), part);
        part.resize(part.size() - 5);
        whole.insert(whole.end(), part.begin(), part.end());
    }
    EXPECT_EQ(receive_all(client.get(), whole.size()), whole);
    relay->signal(SIGINT);
    EXPECT_EQ(relay->wait(1000), 0) << relay->errors();
}

TEST(RelayUsage, AnswersMistakesWithOneSentence) {
    const zx::UniqueFd taken(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(listen(taken.get(), 1), 0);
    getsockname(taken.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const std::string port = std::to_string(ntohs(address.sin_port));
    const std::string free = "127.0.0.1:" + std::to_string(free_port(SOCK_STREAM));

    const struct {
        std::vector<std::string> args;
        std::string sentence;
    } cases[] = {
        {{"--bogus"}, "--input is required"},
        {{"-i", "tcp://" + free, "-o", free, "--fifo-size", "1"}, "--fifo-size"},
        {{"-i", "http://" + free, "-o", free}, "is no input"},
        {{"-i", "tcp://127.0.0.1:0", "-o", free}, "is no address with a port"},
        {{"-i", "tcp://" + free, "-o", "8000"}, "is no address with a port"},
        {{"-i", "tcp://" + free, "-o", "127.0.0.1:" + port}, "cannot listen on"},
        {{"-i", "tcp://127.0.0.1:" + port, "-o", free}, "Address already in use"},
        {{"-i", "tcp://" + free, "-o", free, "--daemon"}, "--daemon requires --log"},
        {{"-i", "tcp://" + free, "-o", free, "--keep", "2148"}, "--keep"},
        {{"-i", "tcp://" + free, "-o", free, "--log", "/nonexistent/log"}, "cannot write the log"},
        {{"--config", "/nonexistent/file"}, "/nonexistent/file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.args));
        std::vector<std::string> args = {ZX_RELAY};
        args.insert(args.end(), c.args.begin(), c.args.end());
        Process relay(args);
        EXPECT_GT(relay.wait(), 0);
        const std::string said = relay.errors();
        EXPECT_THAT(said, testing::AllOf(testing::StartsWith("zxrelay: "), testing::EndsWith("\n"),
                                         testing::HasSubstr(c.sentence)));
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
    }
}

TEST(RelaySource, CountsAndReportsWhatTheFifoHasNoRoomFor) {
    LogCapture log(2);
    const int port = free_port(SOCK_STREAM);
    relay::Stats stats;
    relay::Channel channel(20 * (relay::kMessageSize + 4));  // and nobody empties it
    relay::Source source(relay::open_listener({"127.0.0.1", std::to_string(port)}, 1), false, true,
                         channel, stats);
    relay::Worker receiver("receiver", [&](relay::Worker& worker) { source.run(worker); });
    receiver.start();
    Bytes stream = sample();
    stream.resize(50 * relay::kMessageSize);
    send_all(zx::UniqueFd(connected(SOCK_STREAM, port)).get(), stream);
    while (!source.finished()) {
        usleep(1000);
    }
    receiver.stop();

    EXPECT_EQ(stats.messages_in, 20U);
    EXPECT_EQ(stats.dropped_fifo_full, 30U);
    std::uint64_t reported = 0;
    for (const std::string& line : log.take()) {
        unsigned count = 0;
        if (std::sscanf(line.c_str(), "[WARN][RELAY]the FIFO is full: %u messages", &count) == 1) {
            reported += count;
        }
    }
    EXPECT_EQ(reported, 30U);
}

TEST(RelayChannel, DropsAWholeMessageWhenFull) {
    relay::Channel channel(4 * 1000);
    const Bytes message(996, 7);
    std::uint8_t buffer[1000];
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(channel.push(message));
    }
    EXPECT_FALSE(channel.push(message));
    EXPECT_EQ(channel.pop(buffer).size(), message.size());
    EXPECT_TRUE(channel.push(message));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(channel.pop(buffer).size(), message.size());
    }
    EXPECT_TRUE(channel.empty());
}

TEST(RelayPacketizer, FindsThePacketsAgainBehindGarbage) {
    Bytes packets(20 * kPacketSize, 0);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        packets[i] = i % kPacketSize == 0 ? 0x47 : static_cast<std::uint8_t>(i % 50);
    }
    Bytes stream(packets.begin(), packets.begin() + 9 * kPacketSize);
    stream.insert(stream.end(), 1000, 0xEE);
    stream.insert(stream.end(), packets.begin() + 9 * kPacketSize, packets.end());
    stream.insert(stream.end(), 17, 0x47);

    for (const std::size_t step : {std::size_t{1}, std::size_t{187}, stream.size()}) {
        SCOPED_TRACE(step);
        Bytes out;
        relay::Packetizer packetizer([&](std::span<const std::uint8_t> message) {
            EXPECT_TRUE(relay::is_transport_stream(message));
            EXPECT_LE(message.size(), relay::kMessageSize);
            out.insert(out.end(), message.begin(), message.end());
        });
        for (std::size_t at = 0; at < stream.size(); at += step) {
            packetizer.feed(std::span(stream).subspan(at, std::min(step, stream.size() - at)));
        }
        packetizer.finish();
        EXPECT_EQ(out, packets);
        EXPECT_EQ(packetizer.skipped(), 1017U);
    }
}

}  // namespace
