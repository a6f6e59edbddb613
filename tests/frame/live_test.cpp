// A conversation with a kernel in built frames. The kernel's answers are captured, filtered and
// decoded. live.sh starts this in a namespace whose device "wire" has no address. The kernel
// answers at the other end, in the namespace ZX_PEER.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "log_capture.hpp"
#include "process.hpp"
#include "zxframe.h"

namespace {

constexpr char kOurMac[] = "02:00:00:00:00:01", kPeerMac[] = "02:00:00:00:00:02";
constexpr char kOurIp[] = "10.99.0.1", kPeerIp[] = "10.99.0.2";
constexpr uint16_t kOurPort = 40000, kPeerPort = 8000;
constexpr int kTimeoutMs = 2000;

sockaddr* generic(auto& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

// A socket that listens in the peer's namespace.
int peer_listener() {
    const std::string peer_path = std::string("/run/netns/") + std::getenv("ZX_PEER");
    const int home = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int peer = open(peer_path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(setns(peer, CLONE_NEWNET), 0);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(setns(home, CLONE_NEWNET), 0);
    close(home);
    close(peer);
    sockaddr_in address{AF_INET, htons(kPeerPort), {inet_addr(kPeerIp)}, {}};
    EXPECT_EQ(bind(fd, generic(address), sizeof address), 0);
    EXPECT_EQ(listen(fd, 1), 0);
    return fd;
}

tcp_info info_of(int connection) {
    tcp_info info{};
    socklen_t size = sizeof info;
    EXPECT_EQ(getsockopt(connection, IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    return info;
}

class FrameLive : public testing::Test {
protected:
    FrameLive() {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(ETH_P_ALL);
        address.sll_ifindex = static_cast<int>(if_nametoindex("wire"));
        EXPECT_EQ(bind(wire, generic(address), sizeof address), 0);
    }
    ~FrameLive() override { close(wire); }

    // Sends the frame. The payload goes to its end.
    void send(int32_t length, const std::string& payload = "") {
        ASSERT_GT(length, 0);
        payload.copy(reinterpret_cast<char*>(frame + length) - payload.size(), payload.size());
        EXPECT_EQ(::send(wire, frame, static_cast<std::size_t>(length), 0), length);
    }

    // Waits for a frame that passes the filter. It is then in the filter's record.
    void receive() {
        pollfd readable{wire, POLLIN, 0};
        do {
            ASSERT_EQ(poll(&readable, 1, kTimeoutMs), 1) << "no frame passes the filter";
            std::fill(std::begin(captured), std::end(captured), uint8_t{0});
            ASSERT_GT(recv(wire, captured, sizeof captured - ZXFRAME_READABLE, 0), 0);
            filter->frame.tcp.option_count = 0;
        } while (zxframe_api_filterFrame(nullptr, captured, filter.get()) == 0);
    }

    void send_tcp(uint32_t flags, uint32_t seq, uint32_t ack_seq) {
        const uint32_t options = (flags & ZXFRAME_TCP_SYN) != 0 ? 1 : 0;
        zxbuildtcp_ctt request{kPeerMac, kOurMac, kOurIp, kPeerIp, kOurPort, kPeerPort,
                               seq,      ack_seq, flags,  {},      options,  4 * options};
        request.options[0] = {2, 4, {0x05, 0xb4}};
        zxframe_api_buildTcp(record.get(), &request, frame);
        send(zxframe_api_finishTcp(frame, nullptr, 0));
    }

    zx::test::LogCapture log;
    int wire = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    uint8_t frame[2048]{};
    uint8_t captured[65536 + ZXFRAME_READABLE]{};
    std::unique_ptr<ether_ctt> record = std::make_unique<ether_ctt>();
    std::unique_ptr<frame_filter_ctt> filter = std::make_unique<frame_filter_ctt>();
};

TEST_F(FrameLive, KernelTakesPartInAConversation) {
    // The peer's kernel learns our address from this question.
    send(zxframe_api_buildArp(record.get(), kOurMac, kOurIp, kPeerIp, frame));
    filter->source_mac = kPeerMac;
    filter->dest_mac = kOurMac;
    receive();
    EXPECT_EQ(filter->frame.arp.operation, 2);
    EXPECT_EQ(filter->frame.arp.sender_ip, inet_addr(kPeerIp));
    EXPECT_THAT(filter->frame.arp.sender_mac, testing::ElementsAre(2, 0, 0, 0, 0, 2));

    const int listener = peer_listener();
    constexpr uint32_t kSeq = 0xfffffff0;
    filter->protocol = "tcp";
    filter->source_ip = kPeerIp;
    filter->dest_ip = kOurIp;
    filter->source_port = kPeerPort;
    filter->initialized = 0;
    send_tcp(ZXFRAME_TCP_SYN, kSeq, 0);
    receive();
    const tcp_view& answer = filter->frame.tcp;
    EXPECT_EQ(answer.ack_seq, kSeq + 1);
    EXPECT_EQ(answer.options[0].kind, 2U);
    send_tcp(ZXFRAME_TCP_ACK, kSeq + 1, answer.seq + 1);
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);

    ASSERT_EQ(write(connection, "from the kernel", 15), 15);
    receive();
    *record = filter->frame;
    EXPECT_EQ(zxframe_api_isTcp_sTod_data(record.get(), kPeerIp), 1);
    EXPECT_EQ(record->data_len, 15);
    EXPECT_STREQ(reinterpret_cast<const char*>(captured + 54), "from the kernel");
    send(zxframe_api_buildTcpAck(record.get(), frame));
    EXPECT_TRUE(zx::test::comes_true([&] { return info_of(connection).tcpi_unacked == 0; }));

    zxframe_api_doFrame(record.get(), frame);  // continues after the acknowledgment
    const std::string data = "from a raw frame!";
    std::copy(data.begin(), data.end(), record->data);
    record->data_len = static_cast<uint16_t>(data.size());
    record->tcp.psh = 1;
    send(zxframe_api_buildTcpData(record.get(), frame), data);
    char received[64]{};
    EXPECT_EQ(recv(connection, received, sizeof received, 0), 17);
    EXPECT_EQ(received, data);
    receive();
    EXPECT_EQ(zxframe_api_isTcp_dTos_ack(&filter->frame, kOurIp), 1);
    EXPECT_EQ(answer.ack_seq, kSeq + 1 + 17);
    EXPECT_EQ(info_of(connection).tcpi_total_retrans, 0U);
    close(connection);
    close(listener);
}

}  // namespace
