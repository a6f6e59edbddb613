// Captures from a live interface through a packet socket.
#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/big_endian.hpp"
#include "common/failure.hpp"
#include "source/source.hpp"
#include "zxcommon.hpp"
#include "zxframe.h"

namespace capture {
namespace {

using tools::Failure;
using tools::system_failure;

constexpr std::size_t kLargestFrame = 256U
                                      << 10U;  // with offloads, frames are much larger than 64 KiB
constexpr std::size_t kVlanTagSize = 4;
constexpr std::size_t kMacsSize = std::size_t{2} * ZXFRAME_MAC_SIZE;
constexpr int kKernelBuffer = 16 << 20;
constexpr int kWaitMs = 250;

class InterfaceSource : public Source {
public:
    InterfaceSource(const std::string& name, bool promiscuous);
    Got next(Frame& frame) override;
    [[nodiscard]] std::optional<std::uint64_t> drops() override;

private:
    [[nodiscard]] int hardware_type() const;
    void start();
    bool receive(Frame& frame);
    std::size_t put_vlan_tag_back(const tpacket_auxdata& data, std::size_t size);
    [[noreturn]] void fail() const;

    template <typename Value>
    void set_option(int level, int option, const Value& value) {
        if (setsockopt(socket_.get(), level, option, &value, sizeof value) != 0) {
            fail();
        }
    }

    const std::string name_;
    const int index_;
    zxcommon::Descriptor socket_;
    std::vector<std::uint8_t> buffer_;   // room for a VLAN tag, then a frame
    bool has_reported_nothing_ = false;  // since the last frame
    std::uint64_t drops_ = 0;
};

int index_of(const std::string& name) {
    const unsigned index = if_nametoindex(name.c_str());
    if (index == 0) {
        throw Failure("there is no network interface " + name);
    }
    return static_cast<int>(index);
}

// With protocol 0 the socket receives nothing, in particular not from other interfaces, before
// bind().
zxcommon::Descriptor open_socket(const std::string& name) {
    zxcommon::Descriptor fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (fd.get() < 0 && errno == EPERM) {
        throw Failure("capturing from " + name + " needs root or the capability CAP_NET_RAW");
    }
    if (fd.get() < 0) {
        throw system_failure("cannot capture from " + name);
    }
    return fd;
}

InterfaceSource::InterfaceSource(const std::string& name, bool promiscuous)
    : name_(name),
      index_(index_of(name)),
      socket_(open_socket(name)),
      buffer_(kVlanTagSize + kLargestFrame) {
    if (hardware_type() == ARPHRD_LOOPBACK) {
        set_option(SOL_PACKET, PACKET_IGNORE_OUTGOING, 1);  // each of these also arrives
    }
    set_option(SOL_SOCKET, SO_TIMESTAMPNS, 1);
    set_option(SOL_PACKET, PACKET_AUXDATA, 1);
    // SO_RCVBUFFORCE exceeds the system limit, but needs a capability.
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kKernelBuffer,
                   sizeof kKernelBuffer) != 0) {
        set_option(SOL_SOCKET, SO_RCVBUF, kKernelBuffer);
    }
    start();
    if (promiscuous) {
        packet_mreq request{};
        request.mr_ifindex = index_;
        request.mr_type = PACKET_MR_PROMISC;
        set_option(SOL_PACKET, PACKET_ADD_MEMBERSHIP, request);
    }
}

void InterfaceSource::start() {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = index_;
    if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        fail();
    }
    int code = 0;  // bind() succeeds even if the interface is down
    socklen_t size = sizeof code;
    getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &code, &size);
    if (code != 0) {
        errno = code;
        fail();
    }
}

void InterfaceSource::fail() const {
    if (errno == ENETDOWN) {
        throw Failure("the interface " + name_ + " is down");
    }
    throw system_failure("cannot capture from " + name_);
}

int InterfaceSource::hardware_type() const {
    ifreq request{};
    name_.copy(request.ifr_name, sizeof request.ifr_name - 1);
    if (ioctl(socket_.get(), SIOCGIFHWADDR, &request) != 0) {
        fail();
    }
    const int type = request.ifr_hwaddr.sa_family;
    if (type != ARPHRD_ETHER && type != ARPHRD_LOOPBACK) {
        throw Failure("the interface " + name_ + " does not carry Ethernet frames (hardware type " +
                      std::to_string(type) + ")");
    }
    return type;
}

Got InterfaceSource::next(Frame& frame) {
    if (has_reported_nothing_) {
        pollfd wanted{socket_.get(), POLLIN, 0};
        poll(&wanted, 1, kWaitMs);
    }
    has_reported_nothing_ = !receive(frame);
    return has_reported_nothing_ ? Got::nothing : Got::frame;
}

bool InterfaceSource::receive(Frame& frame) {
    iovec room{buffer_.data() + kVlanTagSize, kLargestFrame};
    alignas(cmsghdr) std::array<std::uint8_t, 256> control;
    msghdr message{};
    message.msg_iov = &room;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t length = recvmsg(socket_.get(), &message, MSG_TRUNC);
    if (length < 0) {
        if (errno != EAGAIN && errno != EINTR) {
            fail();
        }
        return false;
    }
    const std::size_t size = std::min(static_cast<std::size_t>(length), kLargestFrame);
    std::size_t tag_size = 0;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
            std::memcpy(&frame.time, CMSG_DATA(part), sizeof frame.time);
        } else if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
            tpacket_auxdata data{};
            std::memcpy(&data, CMSG_DATA(part), sizeof data);
            tag_size = put_vlan_tag_back(data, size);
        }
    }
    frame.bytes = {buffer_.data() + kVlanTagSize - tag_size, size + tag_size};
    frame.length = static_cast<std::uint32_t>(static_cast<std::size_t>(length) + tag_size);
    return true;
}

// The kernel removes the VLAN tag, which follows the MAC addresses on the wire. This moves the MAC
// addresses to the free bytes before the frame and writes the tag after them. Returns by how many
// bytes the frame has grown.
std::size_t InterfaceSource::put_vlan_tag_back(const tpacket_auxdata& data, std::size_t size) {
    if ((data.tp_status & TP_STATUS_VLAN_VALID) == 0 || size < kMacsSize) {
        return 0;
    }
    const bool has_type = (data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    std::memmove(buffer_.data(), buffer_.data() + kVlanTagSize, kMacsSize);
    tools::store_be16(buffer_.data() + kMacsSize,
                      has_type ? data.tp_vlan_tpid : std::uint16_t{ETH_P_8021Q});
    tools::store_be16(buffer_.data() + kMacsSize + 2, data.tp_vlan_tci);
    return kVlanTagSize;
}

std::optional<std::uint64_t> InterfaceSource::drops() {
    tpacket_stats stats{};
    socklen_t size = sizeof stats;
    if (getsockopt(socket_.get(), SOL_PACKET, PACKET_STATISTICS, &stats, &size) == 0) {
        drops_ += stats.tp_drops;  // the kernel resets its counter with each call
    }
    return drops_;
}

}  // namespace

std::unique_ptr<Source> open_interface(const std::string& name, bool promiscuous) {
    return std::make_unique<InterfaceSource>(name, promiscuous);
}

}  // namespace capture
