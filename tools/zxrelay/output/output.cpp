#include "output/output.hpp"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/uio.h>

#include <cerrno>
#include <random>

#include "common/big_endian.hpp"
#include "common/failure.hpp"
#include "input/sockets.hpp"
#include "stream/lookup.hpp"

namespace relay {
namespace {

constexpr int kSendBuffer = 1 << 20;
constexpr std::uint8_t kVersion = 2U << 6U;
constexpr std::uint8_t kTransportStream = 33;  // of RFC 3551

[[noreturn]] void fail(const char* what, const Target& target) {
    throw tools::system_failure(std::string(what) + " " + target.text);
}

socklen_t size_of(const sockaddr_storage& address) {
    return address.ss_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
}

const sockaddr* generic(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

void set_option(int fd, int level, int name, int value, const Target& target) {
    if (setsockopt(fd, level, name, &value, sizeof value) != 0) {
        fail("cannot prepare the socket for", target);
    }
}

void set_hops(int fd, const sockaddr_storage& address, const Target& target) {
    const bool is_v4 = address.ss_family == AF_INET;
    const int v4 = is_multicast(address) ? IP_MULTICAST_TTL : IP_TTL;
    const int v6 = is_multicast(address) ? IPV6_MULTICAST_HOPS : IPV6_UNICAST_HOPS;
    set_option(fd, is_v4 ? IPPROTO_IP : IPPROTO_IPV6, is_v4 ? v4 : v6, *target.ttl, target);
}

// Only datagrams to a group leave through this interface. The routing table chooses the one for a
// host.
void set_interface(int fd, const sockaddr_storage& address, const Target& target) {
    const unsigned index = interface_index(target.interface);
    if (address.ss_family == AF_INET6) {
        set_option(fd, IPPROTO_IPV6, IPV6_MULTICAST_IF, static_cast<int>(index), target);
        return;
    }
    ip_mreqn request{};
    request.imr_ifindex = static_cast<int>(index);
    if (setsockopt(fd, IPPROTO_IP, IP_MULTICAST_IF, &request, sizeof request) != 0) {
        fail("cannot choose the interface for", target);
    }
}

void send_from(int fd, const sockaddr_storage& address, const Target& target) {
    const Addresses found = resolve({target.localaddr, "0"}, SOCK_DGRAM);
    const sockaddr_storage local = stored(*found);
    errno = EAFNOSUPPORT;
    if (local.ss_family != address.ss_family || bind(fd, generic(local), size_of(local)) != 0) {
        fail("cannot use the localaddr of", target);
    }
}

}  // namespace

Output::Output(Target target)
    : target_(std::move(target)), address_(stored(*resolve(target_.endpoint, SOCK_DGRAM))) {
    socket_.reset(socket(address_.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_) {
        fail("cannot open a socket for", target_);
    }
    set_option(socket_.get(), SOL_SOCKET, SO_SNDBUF, kSendBuffer, target_);
    set_option(socket_.get(), SOL_SOCKET, SO_BROADCAST, 1, target_);
    if (target_.ttl) {
        set_hops(socket_.get(), address_, target_);
    }
    if (!target_.interface.empty()) {
        set_interface(socket_.get(), address_, target_);
    }
    if (!target_.localaddr.empty()) {
        send_from(socket_.get(), address_, target_);
    }
    std::random_device random;  // RFC 3550 wants a random beginning
    header_[0] = kVersion;
    header_[1] = kTransportStream;
    sequence_ = static_cast<std::uint16_t>(random());
    tools::store_be16(header_ + 8, static_cast<std::uint16_t>(random()));
    tools::store_be16(header_ + 10, static_cast<std::uint16_t>(random()));
}

// The socket is connected, so that the kernel reports hosts that do not listen. Without a route,
// connect() fails, and the next datagram tries it again.
bool Output::send(std::span<const std::uint8_t> packets, std::uint64_t now_us) {
    if (!is_connected_) {
        is_connected_ = connect(socket_.get(), generic(address_), size_of(address_)) == 0;
    }
    if (!is_connected_) {
        return false;
    }
    write_header(now_us);
    iovec parts[] = {{header_, kRtpHeader},
                     {const_cast<std::uint8_t*>(packets.data()), packets.size()}};
    msghdr message{};
    message.msg_iov = target_.is_rtp ? parts : parts + 1;
    message.msg_iovlen = target_.is_rtp ? 2 : 1;
    return sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

// A datagram that the kernel refuses uses up its number, too, so receivers see that it is missing.
void Output::write_header(std::uint64_t now_us) {
    const auto clock = static_cast<std::uint32_t>(now_us * 9 / 100);  // 90 kHz, of RFC 2250
    tools::store_be16(header_ + 2, sequence_++);
    tools::store_be16(header_ + 4, static_cast<std::uint16_t>(clock >> 16U));
    tools::store_be16(header_ + 6, static_cast<std::uint16_t>(clock));
}

}  // namespace relay
