#include "stream/net.hpp"

#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstring>
#include <memory>

#include "common/failure.hpp"
#include "zxnet.h"
#include "zxstr.h"

namespace relay {
namespace {

using tools::Failure;

constexpr int kUdpReceiveBuffer = 4 << 20;
constexpr int kKeepAliveIdleSec = 5;
constexpr int kKeepAliveIntervalSec = 2;
constexpr int kKeepAliveProbes = 3;
constexpr int kUnsentBytes = 128 << 10;

struct AddressesFree {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using Addresses = std::unique_ptr<addrinfo, AddressesFree>;

Addresses resolve(const Endpoint& endpoint, int type) {
    addrinfo hints{};
    hints.ai_socktype = type;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* list = nullptr;
    if (const int code = getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &list);
        code != 0) {
        throw Failure("cannot use the address " + endpoint.text() + ": " + gai_strerror(code));
    }
    return Addresses(list);
}

[[noreturn]] void fail(const char* what, const Endpoint& endpoint) {
    throw tools::system_failure(std::string(what) + " " + endpoint.text());
}

void set_option(int fd, int level, int name, int value) {
    setsockopt(fd, level, name, &value, sizeof value);
}

bool is_multicast(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, address, sizeof in);
        return IN_MULTICAST(ntohl(in.sin_addr.s_addr));
    }
    sockaddr_in6 in6{};
    std::memcpy(&in6, address, sizeof in6);
    return IN6_IS_ADDR_MULTICAST(&in6.sin6_addr) != 0;
}

void join(int fd, const addrinfo& group, const Endpoint& endpoint, const std::string& interface) {
    group_req request{};
    if (!interface.empty()) {
        std::uint8_t mac[ZXNET_MAC_SIZE];
        if (const int code = zxnet_api_getIfaceMac_byte(interface.c_str(), mac); code != 0) {
            throw Failure("there is no network interface " + interface + " (" +
                          std::to_string(code) + ", see the log)");
        }
        request.gr_interface = if_nametoindex(interface.c_str());
    }
    std::memcpy(&request.gr_group, group.ai_addr, group.ai_addrlen);
    const int level = group.ai_family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6;
    if (setsockopt(fd, level, MCAST_JOIN_GROUP, &request, sizeof request) != 0) {
        fail("cannot join the multicast address", endpoint);
    }
}

// Lets the kernel end a connection whose peer has vanished without closing it.
void detect_dead_peer(int fd) {
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSec);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSec);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

zxcommon::Descriptor open_udp_source(const Endpoint& endpoint, const std::string& interface) {
    const Addresses addresses = resolve(endpoint, SOCK_DGRAM);
    zxcommon::Descriptor fd(
        socket(addresses->ai_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        fail("cannot open a socket for", endpoint);
    }
    set_option(fd.get(), SOL_SOCKET, SO_RCVBUF, kUdpReceiveBuffer);
    const bool multicast = is_multicast(addresses->ai_addr);
    if (multicast) {
        set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1);  // allows several receivers of one group
    }
    if (bind(fd.get(), addresses->ai_addr, addresses->ai_addrlen) != 0) {
        fail("cannot receive on", endpoint);
    }
    if (multicast) {
        join(fd.get(), *addresses, endpoint, interface);
    }
    return fd;
}

Endpoint checked(const Endpoint& endpoint, const std::string& given) {
    const bool digits = !endpoint.port.empty() &&
                        endpoint.port.find_first_not_of("0123456789") == std::string::npos;
    if (endpoint.host.empty() || !digits || endpoint.port.size() > 5 ||
        std::stoul(endpoint.port) - 1 > 65534) {
        throw Failure("'" + given + "' is not an address with a port from 1 to 65535");
    }
    return endpoint;
}

}  // namespace

std::string Endpoint::text() const {
    const bool bracketed = host.find(':') != std::string::npos;
    return (bracketed ? "[" + host + "]" : host) + ":" + port;
}

Endpoint parse_output(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    Endpoint endpoint;
    if (colon != std::string::npos) {
        endpoint.host = text.substr(0, colon);
        endpoint.port = text.substr(colon + 1);
    }
    if (endpoint.host.size() > 2 && endpoint.host.front() == '[' && endpoint.host.back() == ']') {
        endpoint.host = endpoint.host.substr(1, endpoint.host.size() - 2);
    }
    return checked(endpoint, text);
}

Input parse_input(const std::string& url) {
    char scheme[8];
    char user[256];
    char host[256];
    char path[256];
    int port = -1;
    std::uint8_t is_bracketed = 0;
    zxstr_api_urlSplit(scheme, sizeof scheme, user, sizeof user, host, sizeof host, &port, path,
                       sizeof path, &is_bracketed, url.c_str());
    Input input;
    input.is_udp = std::strcmp(scheme, "udp") == 0;
    const bool complete = url.rfind(std::string(scheme) + "://", 0) == 0 && path[0] == '\0' &&
                          (input.is_udp || std::strcmp(scheme, "tcp") == 0);
    if (!complete) {
        throw Failure("'" + url +
                      "' is not an input: use tcp://ADDRESS:PORT or udp://ADDRESS:PORT");
    }
    // The user is ignored: some players write udp://@239.1.1.1:1234, with an empty user.
    input.endpoint = checked({host, std::to_string(port)}, url);
    return input;
}

zxcommon::Descriptor open_listener(const Endpoint& endpoint, int backlog) {
    const Addresses addresses = resolve(endpoint, SOCK_STREAM);
    zxcommon::Descriptor fd(
        socket(addresses->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        fail("cannot open a socket for", endpoint);
    }
    set_option(fd.get(), SOL_SOCKET, SO_REUSEADDR, 1);
    if (bind(fd.get(), addresses->ai_addr, addresses->ai_addrlen) != 0 ||
        listen(fd.get(), backlog) != 0) {
        fail("cannot listen on", endpoint);
    }
    return fd;
}

zxcommon::Descriptor open_source(const Input& input, const std::string& interface) {
    // A second source waits in the backlog until the first one has ended.
    return input.is_udp ? open_udp_source(input.endpoint, interface)
                        : open_listener(input.endpoint, 1);
}

int accept_connection(int listener, std::string& peer) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const int fd = accept4(listener, generic, &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        return -1;
    }
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(generic, size, host, sizeof host, port, sizeof port,
                NI_NUMERICHOST | NI_NUMERICSERV);
    peer = Endpoint{host, port}.text();
    detect_dead_peer(fd);
    return fd;
}

void prepare_for_stream(int fd) {
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kUnsentBytes);
}

}  // namespace relay
