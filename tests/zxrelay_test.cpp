// Two parts of the relay that need a closer look: the receiver in front of a full FIFO, and the
// time-shift store.
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdio>

#include "log_capture.hpp"
#include "loopback.hpp"
#include "packets.hpp"
#include "process.hpp"
#include "server/log_limit.hpp"
#include "stream/channel.hpp"
#include "stream/net.hpp"
#include "stream/source.hpp"
#include "stream/stats.hpp"
#include "stream/store.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"
#include "zxlog.h"

namespace {

std::atomic<std::uint64_t> g_clock_us{1000000000};

}  // namespace

// This takes the place of libzxlog's clock.
extern "C" uint64_t zxlog_api_us(void) {
    return g_clock_us;
}

namespace {

using namespace zx::test;
using relay::kPacketSize;

TEST(RelaySource, CountsAndReportsWhatTheFifoHasNoRoomFor) {
    LogCapture log(2);
    const int port = free_port(SOCK_STREAM);
    relay::Stats stats;
    relay::Channel channel(20 * (relay::kMessageSize + 4));  // nobody empties it
    relay::Source source(relay::open_listener({"127.0.0.1", std::to_string(port)}, 1), false, true,
                         channel, stats);
    relay::Worker receiver("receiver", [&](zxcommon::StopRequest& stop) { source.run(stop); });
    receiver.start();
    send_all(zxcommon::Descriptor(connected(SOCK_STREAM, port)).get(), packets(0, 50 * 7));
    EXPECT_TRUE(comes_true([&] { return source.finished(); }));
    receiver.stop();

    EXPECT_EQ(stats.messages_in, 20U);
    EXPECT_EQ(stats.dropped_fifo_full, 30U);
    std::uint64_t reported = 0;
    for (const std::string& line : log.take()) {
        unsigned count = 0;
        EXPECT_EQ(std::sscanf(line.c_str(), "[WARN][RELAY]the FIFO is full: %u messages", &count),
                  1)
            << line << ": the end of a source is no reason to warn";
        reported += count;
    }
    EXPECT_EQ(reported, 30U);
}

TEST(RelayLogLimit, CountsWhatItLeavesOutAndBeginsAnew) {
    LogCapture log(3);
    relay::LogLimit limit("clients have connected", 1);
    for (int round = 0; round < 2; ++round) {
        int admitted = 0;
        for (int i = 0; i < 25; ++i) {
            admitted += limit.admits() ? 1 : 0;
        }
        EXPECT_EQ(admitted, 20);
        limit.report_when_due();  // too early
        EXPECT_THAT(log.take(), testing::IsEmpty());
        usleep(1100000);
        limit.report_when_due();
        limit.report_when_due();
        EXPECT_THAT(log.take(), testing::ElementsAre(testing::HasSubstr(
                                    "[NOTICE][RELAY]5 more clients have connected in the last")));
    }
}

TEST(RelayStore, FollowsThePacketsWhateverTheClockSays) {
    constexpr std::uint64_t kNode = 1400;  // packets: so large that the node closes at once
    const std::uint64_t start = g_clock_us;
    relay::Store store(10);
    std::uint64_t lost = 0;
    const auto add_node = [&](std::uint64_t node) {
        store.add(packets(node * kNode, kNode));
        EXPECT_TRUE(comes_true([&] { return store.close_node_when_due(); }));
    };
    const auto expect_nodes = [&](relay::Store::Place& place, std::uint64_t from,
                                  std::uint64_t count) {
        Bytes all;
        Bytes buffer(100 * kPacketSize);
        for (auto got = store.read(place, buffer, lost); !got.empty();
             got = store.read(place, buffer, lost)) {
            all.insert(all.end(), got.begin(), got.end());
        }
        EXPECT_TRUE(all == packets(from * kNode, count * kNode)) << from;
    };

    relay::Store::Place early = store.seek_back(5);
    add_node(0);
    add_node(1);  // in the same microsecond
    expect_nodes(early, 0, 2);
    g_clock_us = start + 4000000;
    add_node(2);
    EXPECT_EQ(store.nodes(), 3U);
    EXPECT_EQ(store.bytes(), 3 * kNode * kPacketSize);
    relay::Store::Place recent = store.seek_back(3);
    relay::Store::Place oldest = store.seek_back(1000000);
    expect_nodes(recent, 2, 1);
    expect_nodes(early, 2, 1);
    EXPECT_EQ(lost, 0U);

    g_clock_us = start + 11000000;  // the first two are too old now; the fourth node follows
    relay::Store::Place late = store.seek_back(2);
    add_node(3);
    EXPECT_EQ(store.nodes(), 2U);
    expect_nodes(late, 3, 1);
    EXPECT_EQ(lost, 0U);
    expect_nodes(oldest, 2, 2);
    EXPECT_EQ(lost, 2 * kNode);

    g_clock_us = start - 1000000;  // set back, so everything in the store looks old
    add_node(4);
    lost = 0;
    expect_nodes(early, 4, 1);
    EXPECT_EQ(lost, kNode);
    EXPECT_EQ(store.bytes_after(early), 0U);
}

}  // namespace
