// Parts of the relay that are worth a closer look: the queue between the threads, the receiver in
// front of a full one, and the ring of what has passed.
#include <gmock/gmock.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>
#include <random>
#include <string>
#include <thread>

#include "log_capture.hpp"
#include "loopback.hpp"
#include "packets.hpp"
#include "process.hpp"
#include "stream/channel.hpp"
#include "stream/net.hpp"
#include "stream/ring.hpp"
#include "stream/source.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"

namespace {

using namespace zx::test;
using relay::kMessageSize, relay::kPacketSize, relay::Ring;

TEST(RelayQueue, WakesItsConsumerForWhateverComes) {
    constexpr std::uint64_t kPackets = 100000;
    relay::Queue queue(50 * kPacketSize);
    const std::jthread producer([&] {
        for (std::uint64_t sent = 0; sent < kPackets;) {
            const std::uint64_t count = std::min(sent % 5 + 1, kPackets - sent);
            sent += queue.push(packets(sent, count)) ? count : 0;
        }
    });
    Bytes buffer(17 * kPacketSize + 5);
    for (std::uint64_t received = 0; received < kPackets;) {
        if (queue.sleep()) {
            pollfd waiting{queue.wake_fd(), POLLIN, 0};
            ASSERT_EQ(poll(&waiting, 1, 10000), 1) << received;
            queue.clear_wake();
        }
        const std::size_t size = queue.pop(buffer);
        const Bytes got(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_EQ(got, packets(received, size / kPacketSize));
        received += size / kPacketSize;
    }
}

TEST(RelaySource, CountsAndReportsDatagramsThatHaveNoRoom) {
    LogCapture log(2);
    const int port = free_port(SOCK_DGRAM);
    relay::Channel channel(20 * kMessageSize);  // and nobody empties it
    relay::Source source(relay::open_source({true, {"127.0.0.1", std::to_string(port)}}, ""), true,
                         false, channel, channel.stats);
    relay::Worker receiver("receiver", [&](zxcommon::StopRequest& stop) { source.run(stop); });
    receiver.start();
    const zxcommon::Descriptor sender(connected(SOCK_DGRAM, port));
    for (std::uint64_t i = 0; i < 50; ++i) {
        send_all(sender.get(), packets(7 * i, 7));
    }
    EXPECT_TRUE(comes_true([&] { return channel.stats.bytes_in == 50 * kMessageSize; }));
    source.interrupt();
    receiver.stop();

    EXPECT_EQ(channel.stats.messages_in, 20U);
    EXPECT_EQ(channel.stats.dropped_fifo_full, 30U);
    std::uint64_t reported = 0;
    for (const std::string& line : log.take()) {
        unsigned count = 0;
        EXPECT_EQ(std::sscanf(line.c_str(), "[WARN][RELAY]the FIFO is full: %u messages", &count),
                  1)
            << line;
        reported += count;
    }
    EXPECT_EQ(reported, 30U);
}

TEST(RelaySource, LetsATcpSourceWaitForRoom) {
    const int port = free_port(SOCK_STREAM);
    relay::Channel channel(2 * relay::kLargestMessage);
    relay::Source source(relay::open_listener({"127.0.0.1", std::to_string(port)}, 1), false, true,
                         channel, channel.stats);
    relay::Worker receiver("receiver", [&](zxcommon::StopRequest& stop) { source.run(stop); });
    receiver.start();
    const std::jthread feeder([&] {
        send_all(zxcommon::Descriptor(connected(SOCK_STREAM, port)).get(), packets(0, 5000));
    });
    Bytes got;
    Bytes buffer(kMessageSize);
    while (!source.finished() || !channel.empty()) {
        const std::size_t size = channel.queue(0).pop(buffer);
        got.insert(got.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
    }
    receiver.stop();
    EXPECT_EQ(got, packets(0, 5000));
}

// The kernel would end a connection that --stall allows to wait.
TEST(RelayNet, LeavesItToTheStallTimeoutHowLongAClientMayWait) {
    const zxcommon::Descriptor listener = relay::open_listener({"127.0.0.1", "0"}, 1);
    const zxcommon::Descriptor client(connected(SOCK_STREAM, port_of(listener.get())));
    std::string peer;
    zxcommon::Descriptor fd;
    ASSERT_TRUE(comes_true([&] {
        fd.reset(relay::accept_connection(listener.get(), peer));
        return static_cast<bool>(fd);
    }));
    int limit_ms = -1;
    socklen_t size = sizeof limit_ms;
    getsockopt(fd.get(), IPPROTO_TCP, TCP_USER_TIMEOUT, &limit_ms, &size);
    EXPECT_EQ(limit_ms, 0);
}

// Beside a text that has everything.
TEST(RelayRing, GivesWhatATextWouldGive) {
    std::mt19937 random(1);
    relay::Budget budget(8 * Ring::kBlockSize);
    Ring ring(budget, 0);
    std::string all;
    for (int i = 0; i < 3000; ++i) {
        const auto room = ring.room();
        if (room.empty()) {
            ASSERT_EQ(ring.blocks(), 8U);
            ring.drop_front();
            continue;
        }
        const std::size_t packet_count =
            std::min<std::size_t>(random() % 200, room.size() / kPacketSize);
        const std::size_t size = packet_count * kPacketSize;
        std::generate_n(room.begin(), size, [&] { return static_cast<std::uint8_t>(random()); });
        all.append(room.begin(), room.begin() + static_cast<std::ptrdiff_t>(size));
        ring.commit(size, 0);
        ASSERT_EQ(ring.end(), all.size());

        const std::uint64_t position = ring.begin() + random() % (ring.bytes() + 1);
        iovec parts[3];
        const std::size_t limit = random() % (4 * Ring::kBlockSize);
        std::string got;
        for (const iovec& part : std::span(parts).first(ring.gather(position, parts, limit))) {
            got.append(static_cast<const char*>(part.iov_base), part.iov_len);
        }
        ASSERT_EQ(got, all.substr(position, got.size()));
        ASSERT_GE(got.size(), std::min({limit, all.size() - position, 2UL * Ring::kBlockSize}));
        ASSERT_LE(got.size(), limit);
        if (random() % 50 == 0) {
            ring.trim(position);
            ASSERT_LE(ring.begin(), position);
            ASSERT_LT(position - ring.begin(), Ring::kBlockSize);
        }
    }
}

TEST(RelayRing, FindsTheBytesOfSomeSecondsAgo) {
    constexpr std::uint64_t kSecond = 1000000;
    relay::Budget budget(100 * Ring::kBlockSize);
    Ring ring(budget, 10 * kSecond);
    EXPECT_EQ(ring.seek_back(5, 0), 0U);
    for (std::uint64_t ms = 0; ms <= 30000; ms += 100) {  // 100 blocks in 30 seconds
        for (std::size_t left = 116 * kPacketSize; left != 0;) {
            const std::size_t size = std::min(ring.room().size(), left);
            ring.commit(size, ms * 1000);
            left -= size;
        }
        ring.trim(ring.kept_from(ms * 1000));
    }
    constexpr std::uint64_t kNow = 30 * kSecond;
    constexpr std::uint64_t kTick = 116 * kPacketSize;
    EXPECT_GE(ring.bytes(), 100 * kTick);
    EXPECT_LE(ring.bytes(), 107 * kTick);
    for (const std::uint64_t seconds : {0U, 1U, 5U, 10U, 11U, 1000000U}) {
        const std::uint64_t back = ring.end() - ring.seek_back(seconds, kNow);
        const std::uint64_t ticks = 10 * std::min<std::uint64_t>(seconds, 10);
        EXPECT_LE(back, (ticks + 1) * kTick) << seconds;
        EXPECT_GE(back + 2 * kTick, ticks * kTick) << seconds;
    }
    EXPECT_EQ(ring.seek_back(5, kNow + 20 * kSecond), ring.end());  // nothing is that recent
    while (ring.front_end() != ring.begin()) {
        ring.drop_front();
    }
    EXPECT_GE(ring.seek_back(10, kNow), ring.begin());
}

}  // namespace
