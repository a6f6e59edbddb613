#include "stream/net.hpp"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "common/failure.hpp"
#include "stream/lookup.hpp"

namespace relay {
namespace {

constexpr int kKeepAliveIdleSec = 5;
constexpr int kKeepAliveIntervalSec = 2;
constexpr int kKeepAliveProbes = 3;
constexpr int kUnsentBytes = 128 << 10;

[[noreturn]] void fail(const char* what, const Endpoint& endpoint) {
    throw tools::system_failure(std::string(what) + " " + endpoint.text());
}

void set_option(int fd, int level, int name, int value) {
    setsockopt(fd, level, name, &value, sizeof value);
}

// Lets the kernel end a connection whose peer has vanished without closing it.
void detect_dead_peer(int fd) {
    set_option(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
    set_option(fd, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleSec);
    set_option(fd, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalSec);
    set_option(fd, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
}

}  // namespace

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

zxcommon::Descriptor accept_connection(int listener, std::string& peer) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    zxcommon::Descriptor fd(accept4(listener, generic, &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd) {
        return fd;
    }
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(generic, size, host, sizeof host, port, sizeof port,
                NI_NUMERICHOST | NI_NUMERICSERV);
    peer = Endpoint{host, port}.text();
    detect_dead_peer(fd.get());
    return fd;
}

Address peer_address(int fd) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return address_of(address);
}

void prepare_for_stream(int fd) {
    set_option(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    set_option(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kUnsentBytes);
}

}  // namespace relay
