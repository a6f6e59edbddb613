#include "input/sockets.hpp"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "common/failure.hpp"
#include "config/network.hpp"
#include "input/file.hpp"
#include "stream/lookup.hpp"
#include "stream/net.hpp"

namespace relay {
namespace {

using tools::Failure;

constexpr int kReceiveBuffer = 4 << 20;

// The only connection at a time, and one that waits for its end.
constexpr int kSourceBacklog = 1;

[[noreturn]] void fail(const char* what, const Url& url) {
    throw tools::system_failure(std::string(what) + " " + url.text);
}

bool set_option(int fd, int level, int name, int value) {
    return setsockopt(fd, level, name, &value, sizeof value) == 0;
}

// Groups of one link, such as ff02::1234, belong to an interface: without it, bind() refuses them.
void set_scope(sockaddr_storage& address, unsigned interface) {
    sockaddr_in6 in6{};
    std::memcpy(&in6, &address, sizeof in6);
    if (address.ss_family == AF_INET6 && interface != 0) {
        in6.sin6_scope_id = interface;
        std::memcpy(&address, &in6, sizeof in6);
    }
}

// Without these options, a socket also receives what other sockets of the machine have joined, on
// other interfaces and of other senders. For IPv6, the kernel looks at the group alone, so the
// socket is bound to its interface, too. This comes before bind(), which does the same for groups
// of one link: after that, only root may do it.
void receive_own_only(int fd, const Url& url, int family, const std::string& interface) {
    const bool is_v4 = family == AF_INET;
    const bool is_done = set_option(fd, is_v4 ? IPPROTO_IP : IPPROTO_IPV6,
                                    is_v4 ? IP_MULTICAST_ALL : IPV6_MULTICAST_ALL, 0);
    const bool is_bound = is_v4 || interface.empty() ||
                          setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                                     static_cast<socklen_t>(interface.size())) == 0;
    if (!is_done || !is_bound) {
        fail("cannot prepare the socket for", url);
    }
}

bool join(int fd, const sockaddr_storage& group, const Url& url, unsigned interface) {
    const int level = group.ss_family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6;
    if (url.sender.empty()) {
        const group_req request{interface, group};
        return setsockopt(fd, level, MCAST_JOIN_GROUP, &request, sizeof request) == 0;
    }
    const Addresses sender = resolve({url.sender, url.endpoint.port}, SOCK_DGRAM);
    const group_source_req request{interface, group, stored(*sender)};
    return setsockopt(fd, level, MCAST_JOIN_SOURCE_GROUP, &request, sizeof request) == 0;
}

zxcommon::Descriptor open_datagram_socket(const Url& url, const std::string& interface_name) {
    const Addresses found = resolve(url.endpoint, SOCK_DGRAM);
    sockaddr_storage address = stored(*found);
    const bool is_group = is_multicast(address);
    if (!is_group && !url.sender.empty()) {
        throw Failure("'" + url.text + "' names a sender, but no multicast address");
    }
    const unsigned interface = is_group ? interface_index(interface_name) : 0;
    set_scope(address, interface);
    zxcommon::Descriptor fd(
        socket(address.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd) {
        fail("cannot open a socket for", url);
    }
    if (!set_option(fd.get(), SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer)) {
        set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);
    }
    set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, is_group ? 1 : 0);  // a group has many receivers
    if (is_group) {
        receive_own_only(fd.get(), url, address.ss_family, interface_name);
    }
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), found->ai_addrlen) != 0) {
        fail("cannot receive on", url);
    }
    if (is_group && !join(fd.get(), address, url, interface)) {
        fail("cannot join the multicast address", url);
    }
    return fd;
}

// O_NONBLOCK: opening a named pipe would wait.
zxcommon::Descriptor open_file(const Url& url) {
    zxcommon::Descriptor fd(open(url.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat facts {};
    if (!fd || fstat(fd.get(), &facts) != 0) {
        fail("cannot read", url);
    }
    if (!S_ISREG(facts.st_mode)) {
        throw Failure("cannot read " + url.text + ": it is not a regular file");
    }
    if (!can_be_paced(fd.get())) {
        throw Failure("cannot play " + url.text +
                      ": it is no transport stream with clock references (PCR)");
    }
    return fd;
}

}  // namespace

bool is_multicast(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, &address, sizeof in);
        return IN_MULTICAST(ntohl(in.sin_addr.s_addr));
    }
    sockaddr_in6 in6{};
    std::memcpy(&in6, &address, sizeof in6);
    return IN6_IS_ADDR_MULTICAST(&in6.sin6_addr) != 0;
}

// Without the name of an interface, the kernel might choose another one. A socket that is a member
// already stays one, and what fails now is tried again later.
void join_again(const OpenInput& input) {
    const unsigned interface = if_nametoindex(input.interface.c_str());
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (interface == 0 ||
        getsockname(input.fd.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        !is_multicast(address)) {
        return;
    }
    try {
        join(input.fd.get(), address, input.url, interface);
    } catch (const Failure&) {  // the name of the sender
    }
}

sockaddr_storage stored(const addrinfo& info) {
    sockaddr_storage address{};
    std::memcpy(&address, info.ai_addr, info.ai_addrlen);
    return address;
}

unsigned interface_index(const std::string& interface) {
    require_interface(interface);
    return if_nametoindex(interface.c_str());
}

zxcommon::Descriptor open_input(const Url& url, const std::string& interface) {
    switch (url.scheme) {
        case Scheme::udp:
        case Scheme::rtp:
            return open_datagram_socket(url, interface);
        case Scheme::tcp_listen:
            return open_listener(url.endpoint, kSourceBacklog);
        case Scheme::file:
            return open_file(url);
        case Scheme::standard_input:
            return zxcommon::Descriptor(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
        default:
            return {};
    }
}

}  // namespace relay
