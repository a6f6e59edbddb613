// Built frames sent to a kernel, and its answers captured, filtered and decoded. live.sh starts
// this in a namespace whose device "wire" has no address; the other end is a port of "bridge" in
// the namespace ZX_PEER, whose kernel answers there.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "log_capture.hpp"
#include "process.hpp"
#include "zxframe.h"

namespace {

constexpr char kOurMac[] = "02:00:00:00:00:01", kPeerMac[] = "02:00:00:00:00:02";
constexpr char kOurIp[] = "10.99.0.1", kPeerIp[] = "10.99.0.2";
constexpr int kTimeoutMs = 2000;

sockaddr* generic(auto& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

// A socket that belongs to the peer's namespace.
int peer_socket(int type, uint16_t port) {
    const std::string peer_path = std::string("/run/netns/") + std::getenv("ZX_PEER");
    const int home = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int peer = open(peer_path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(setns(peer, CLONE_NEWNET), 0);
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    EXPECT_EQ(setns(home, CLONE_NEWNET), 0);
    close(home);
    close(peer);
    sockaddr_in address{AF_INET, htons(port), {inet_addr(kPeerIp)}, {}};
    EXPECT_EQ(bind(fd, generic(address), sizeof address), 0);
    const timeval limit{kTimeoutMs / 1000, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return fd;
}

std::string at_peer(const std::string& command) {
    FILE* const pipe = popen(("ip netns exec \"$ZX_PEER\" " + command).c_str(), "r");
    std::string text;
    for (int c; (c = std::fgetc(pipe)) != EOF;) {
        text += static_cast<char>(c);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return text;
}

// What the peer's kernel counts when it does not like what it gets.
std::string complaints() {
    return at_peer("nstat -asz | grep -E 'Err|NoPorts|Discards|Truncated|Retrans'");
}

bool soon(const std::function<bool()>& happens) {
    return zx::test::comes_true(happens, kTimeoutMs);
}

class FrameLive : public testing::Test {
protected:
    FrameLive() {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex("wire"));
        EXPECT_EQ(bind(wire_, generic(address), sizeof address), 0);
        // The peer's kernel learns from the question who we are.
        send(zxframe_api_buildArp(record_.get(), kOurMac, kOurIp, kPeerIp, frame_));
        filter_->source_mac = kPeerMac;
        filter_->dest_mac = kOurMac;
        receive();
        EXPECT_EQ(filter_->frame.arp.operation, 2);
        EXPECT_EQ(filter_->frame.arp.sender_ip, inet_addr(kPeerIp));
        EXPECT_THAT(filter_->frame.arp.sender_mac, testing::ElementsAre(2, 0, 0, 0, 0, 2));
        before_ = complaints();
    }

    ~FrameLive() override { close(wire_); }

    // Sends the frame, which ends with the payload.
    void send(int32_t length, const std::string& payload = "") {
        ASSERT_GT(length, 0);
        payload.copy(reinterpret_cast<char*>(frame_ + length) - payload.size(), payload.size());
        EXPECT_EQ(::send(wire_, frame_, static_cast<std::size_t>(length), 0), length);
    }

    void set_payload(const std::string& payload) {
        record_->data[payload.size()] = 0;
        std::copy(payload.begin(), payload.end(), record_->data);
        record_->data_len = static_cast<uint16_t>(payload.size());
    }

    // The next frame that passes the filter stands in its record then.
    void receive() {
        pollfd readable{wire_, POLLIN, 0};
        do {
            ASSERT_EQ(poll(&readable, 1, kTimeoutMs), 1) << "no frame passes the filter";
            std::fill(std::begin(captured_), std::end(captured_), uint8_t{0});
            ASSERT_GT(recv(wire_, captured_, sizeof captured_ - ZXFRAME_READABLE, 0), 0);
            filter_->frame.tcp.option_count = 0;
        } while (zxframe_api_filterFrame(nullptr, captured_, filter_.get()) == 0);
    }

    void send_tcp(uint32_t flags, uint32_t seq, uint32_t ack_seq) {
        const uint32_t options = (flags & ZXFRAME_TCP_SYN) != 0 ? 1 : 0;
        zxbuildtcp_ctt request{kPeerMac, kOurMac, kOurIp, kPeerIp, 40000,   8000,
                               seq,      ack_seq, flags,  {},      options, 4 * options};
        request.options[0] = {2, 4, {0x05, 0xb4}};
        zxframe_api_buildTcp(record_.get(), &request, frame_);
        send(zxframe_api_finishTcp(frame_, nullptr, 0));
    }

    zx::test::LogCapture log_;
    int wire_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    uint8_t frame_[2048]{};
    uint8_t captured_[65536 + ZXFRAME_READABLE]{};
    std::unique_ptr<ether_ctt> record_ = std::make_unique<ether_ctt>();
    std::unique_ptr<frame_filter_ctt> filter_ = std::make_unique<frame_filter_ctt>();
    std::string before_;
};

TEST_F(FrameLive, KernelTakesUdpPayloads) {
    const int receiver = peer_socket(SOCK_DGRAM, 7000);
    const ether_pkt request{
        {}, "02:00:00:00:00:01", "02:00:00:00:00:02", "10.99.0.1", "10.99.0.2", 5004, 7000};
    char received[2048];
    for (const std::size_t size : {0U, 1315U, 1472U}) {
        const std::string payload(size, 'z');
        set_payload(payload);
        send(zxframe_api_buildUdp(record_.get(), &request, frame_), payload);
        ASSERT_EQ(recv(receiver, received, sizeof received, 0), static_cast<ssize_t>(size));
        EXPECT_EQ(std::string(received, size), payload);
    }
    EXPECT_EQ(complaints(), before_);
    set_payload("x");
    send(zxframe_api_buildUdp(record_.get(), &request, frame_), "y");
    EXPECT_TRUE(soon([&] { return complaints() != before_; }));
    close(receiver);
}

TEST_F(FrameLive, KernelTakesAcknowledgmentsAndData) {
    const int listener = peer_socket(SOCK_STREAM, 8000);
    ASSERT_EQ(listen(listener, 1), 0);
    *filter_ = {};
    filter_->protocol = "tcp";
    filter_->source_ip = kPeerIp;
    filter_->dest_ip = kOurIp;
    filter_->source_port = 8000;
    constexpr uint32_t kSeq = 0xfffffff0;
    send_tcp(ZXFRAME_TCP_SYN, kSeq, 0);
    receive();
    const tcp_view& answer = filter_->frame.tcp;
    EXPECT_EQ(answer.ack_seq, kSeq + 1);
    EXPECT_EQ(answer.options[0].kind, 2U);
    send_tcp(ZXFRAME_TCP_ACK, kSeq + 1, answer.seq + 1);
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_GE(connection, 0);

    ASSERT_EQ(write(connection, "from the kernel", 15), 15);
    receive();
    *record_ = filter_->frame;
    EXPECT_EQ(zxframe_api_isTcp_sTod_data(record_.get(), kPeerIp), 1);
    EXPECT_EQ(record_->data_len, 15);
    EXPECT_STREQ(reinterpret_cast<const char*>(captured_ + 54), "from the kernel");
    send(zxframe_api_buildTcpAck(record_.get(), frame_));
    EXPECT_TRUE(soon([connection] {
        tcp_info now{};
        socklen_t size = sizeof now;
        getsockopt(connection, IPPROTO_TCP, TCP_INFO, &now, &size);
        return now.tcpi_unacked == 0;
    }));

    zxframe_api_doFrame(record_.get(), frame_);  // goes on from the acknowledgment
    const std::string data = "from a raw frame!";
    set_payload(data);
    record_->tcp.psh = 1;
    send(zxframe_api_buildTcpData(record_.get(), frame_), data);
    char received[64]{};
    EXPECT_EQ(recv(connection, received, sizeof received, 0), 17);
    EXPECT_EQ(received, data);
    receive();
    EXPECT_EQ(zxframe_api_isTcp_dTos_ack(&filter_->frame, kOurIp), 1);
    EXPECT_EQ(answer.ack_seq, kSeq + 1 + 17);
    EXPECT_EQ(complaints(), before_);
    // Reset, or the kernel would repeat its FIN, which nobody answers, into the next test.
    const linger at_once{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(connection);
    close(listener);
}

TEST_F(FrameLive, BridgeLearnsAndForgetsGroups) {
    for (const uint32_t version : {2U, 3U}) {
        const std::string group = "239.1.1." + std::to_string(version);
        const std::string mac = "01:00:5e:01:01:0" + std::to_string(version);
        igmp_req request{mac.c_str(), kOurMac, kOurIp, group.c_str(), version, 0, 0, 0, {}};
        const auto has_group = [&] {
            return at_peer("bridge mdb show dev bridge").find(group) != std::string::npos;
        };
        request.action = ZXFRAME_IGMP_JOIN;
        send(zxframe_api_buildIgmp(record_.get(), &request, frame_));
        EXPECT_TRUE(soon(has_group));
        request.action = ZXFRAME_IGMP_LEAVE;
        send(zxframe_api_buildIgmp(record_.get(), &request, frame_));
        EXPECT_TRUE(soon(std::not_fn(has_group)));
    }
    EXPECT_EQ(complaints(), before_);
}

}  // namespace
