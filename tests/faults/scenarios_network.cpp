// Waiting for descriptors, sockets, names, interfaces.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <fstream>

#include "faults.hpp"
#include "internal/guard.hpp"
#include "log_capture.hpp"
#include "loopback.hpp"
#include "zxepoll.h"
#include "zxnet.h"

namespace zx::test {
namespace {

int32_t fd_at(void* fds, uint32_t index) {
    return (*static_cast<std::array<int, 2>*>(fds))[index];
}

int32_t close_at(void* fds, uint32_t index) {
    return close(fd_at(fds, index));
}

int32_t note(void* noted, int32_t) {
    *static_cast<bool*>(noted) = true;
    return 0;
}

ZX_SCENARIO(epoll_set) {
    std::array<int, 2> fds{eventfd(1, EFD_CLOEXEC), eventfd(1, EFD_CLOEXEC)};
    const int epfd = zxepoll_appapi_init(2, &fds, EPOLLIN, fd_at);
    const UniqueFd of_cancelled[] = {UniqueFd(fds[0]), UniqueFd(fds[1]), UniqueFd(epfd)};
    epoll_event events[2];
    const Said polled{epfd >= 0, zxepoll_mod(epfd, fds[0], EPOLLIN), zxepoll_wait(epfd, events, 2),
                      zxepoll_wait_timeout(epfd, events, 2, 0)};
    bool noted = false;
    zxepoll_appapi_dataread(epfd, 2, &noted, note, nullptr);
    return Said{polled, noted, zxepoll_del(epfd, fds[0], EPOLLIN),
                zxepoll_appapi_deinit(epfd, 2, &fds, close_at)};
}

std::array<UniqueFd, 2> stream_pair() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

ZX_SCENARIO(epoll_one) {
    const UniqueFd fd(eventfd(UINT_MAX, EFD_CLOEXEC));
    const std::uint64_t full = UINT64_MAX - 1 - UINT_MAX;  // no more can be written to it
    EXPECT_EQ(write(fd.get(), &full, sizeof full), 8);
    int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    const UniqueFd of_cancelled(epfd);
    const auto [near, far] = stream_pair();
    EXPECT_EQ(write(far.get(), "x", 1), 1);
    shutdown(far.get(), SHUT_RDWR);
    return Said{zxepoll_waitfd_timeout(epfd, fd.get(), 2, 100),
                zxepoll_waitfd_timeout(epfd, near.get(), ZXEPOLL_WAIT_READ, 100),
                zxepoll_add(epfd, fd.get(), EPOLLIN),
                zxepoll_waitfd_timeout_noopt(epfd, fd.get(), ZXEPOLL_WAIT_READ, 100),
                zxepoll_close(&epfd),
                epfd};
}

// An instance must have room for at least one descriptor, and has a descriptor of its own.
ZX_SCENARIO(epoll_edges) {
    count_calls(false);
    int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    const auto [near, far] = stream_pair();
    const int fd = near.get();
    const Said made{zxepoll_innerapi_open(0, __func__, __LINE__), fcntl(epfd, F_GETFD),
                    zxepoll_appapi_init(UINT32_MAX, nullptr, EPOLLIN, fd_at)};
    const auto waits = [&](std::uint32_t timeout_ms) {
        const std::uint64_t start = clock_us();
        const int result = zxepoll_waitfd_timeout(epfd, fd, ZXEPOLL_WAIT_READ, timeout_ms);
        return Said{result, (clock_us() - start) / 990000};
    };
    const int writable = zxepoll_waitfd_timeout(epfd, fd, ZXEPOLL_WAIT_WRITE, 100);
    const std::string whole_pass = waits(0);
    zxepoll_add(epfd, far.get(), EPOLLOUT);
    const std::string beside_busy = waits(20);
    zxepoll_close(&epfd);
    return Said{made, writable, whole_pass, beside_busy, zxepoll_del(epfd, fd, 0)};
}

struct Application {
    std::array<int, 4> fds;
    int epfd = -1;
    std::string asked{}, reads{}, writes{};
};

// The descriptors: one to read and write, none, one to write, and one whose other end is closed.
ZX_SCENARIO(epoll_dispatch) {
    count_calls(false);
    const auto [near, far] = stream_pair();
    auto [broken, other] = stream_pair();
    other.reset();
    EXPECT_EQ(write(far.get(), "x", 1), 1);
    Application app{{near.get(), -1, far.get(), broken.get()}};
    const auto at = [](void* context, std::uint32_t index) {
        auto& own = *static_cast<Application*>(context);
        own.asked += std::to_string(index);
        return own.fds[index];
    };
    app.epfd = zxepoll_appapi_init(4, &app, EPOLLIN | EPOLLOUT, at);
    const auto read = [](void* context, int32_t fd) {
        auto& own = *static_cast<Application*>(context);
        own.reads += fd == own.fds[0] ? "near" : "?";
        return zxepoll_del(own.epfd, fd, 0);
    };
    const auto write = [](void* context, int32_t fd) {
        auto& own = *static_cast<Application*>(context);
        own.writes = fd == own.fds[2] && own.writes != "?" ? "far" : "?";
        return -1;
    };
    const std::uint64_t start = clock_us();
    zxepoll_appapi_dataread(app.epfd, 4, &app, read, write);
    const bool took_a_second = clock_us() - start >= 990000;
    LogCapture().take();  // the same line in every turn
    const int ended = zxepoll_appapi_deinit(app.epfd, 4, &app, at);
    return Said{app.reads, app.writes, app.asked, took_a_second, ended, fcntl(app.epfd, F_GETFD)};
}

ZX_SCENARIO(polls) {
    const auto [near, far] = stream_pair();
    pollfd_ctt record{near.get(), ZXNET_POLL_WRITE, 0};
    return Said{zxnet_api_socketNonblock(near.get(), 1), zxnet_api_poll(&record, 1, 0),
                zxnet_api_waitFd(near.get(), ZXNET_WAIT_WRITE),
                zxnet_api_waitFdTimeout(near.get(), ZXNET_WAIT_WRITE, 2)};
}

ZX_SCENARIO(exchange) {
    const auto [near, far] = stream_pair();
    char data[2000] = "";
    return Said{zxnet_api_epollSend2(near.get(), data, sizeof data, 20),
                zxnet_api_epollRecv(far.get(), data, sizeof data, 20)};
}

ZX_SCENARIO(short_exchange) {
    const auto [near, far] = stream_pair();
    char data[8] = "";
    return Said{zxnet_api_epollSend(near.get(), data, sizeof data, 20),
                zxnet_api_epollSend3(near.get(), data, sizeof data),
                zxnet_api_epollRecv3(far.get(), data, sizeof data)};
}

// A listening socket, and its address.
struct Listener {
    Listener() {
        EXPECT_EQ(bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd.get(), 8), 0);
        socklen_t size = sizeof address;
        getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size);
    }
    UniqueFd fd{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_in address = loopback(0);
};

ZX_SCENARIO(connection) {
    const Listener listener;
    const UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* const address = reinterpret_cast<const sockaddr*>(&listener.address);
    return Said{zxnet_api_socketConnect(fd.get(), address, sizeof listener.address, 2000000, 1)};
}

ZX_SCENARIO(reachable) {
    const Listener listener;
    return Said{zxnet_api_isReachable("127.0.0.1", ntohs(listener.address.sin_port))};
}

ZX_SCENARIO(unreachable) {
    count_calls(false);
    const Listener listener;
    const std::uint16_t port = ntohs(listener.address.sin_port);
    return Said{zxnet_api_isReachable("no such host", port),
                zxnet_api_isReachable("127.0.0.1", 65536U + port)};
}

// A TCP connection.
struct Connection {
    Listener listener;
    UniqueFd near{connected(SOCK_STREAM, ntohs(listener.address.sin_port))};
    UniqueFd far{accept(listener.fd.get(), nullptr, nullptr)};
};

ZX_SCENARIO(polled_connection) {
    count_calls(false);
    const Connection c;
    const int fd = c.near.get();
    send(c.far.get(), "xy", 2, MSG_OOB);
    zxnet_api_waitFd(fd, ZXNET_WAIT_READ);
    pollfd_ctt fds[] = {{fd, 7, 99}, {-1, 1, 99}, {c.far.get(), 1, 99}};
    const Said polled{zxnet_api_poll(fds, 3, 1000),
                      zxnet_api_poll(fds + 2, 1, 1),
                      zxnet_api_poll(fds + 1, 1, 10000),
                      fds[0].revents,
                      fds[1].revents,
                      fds[2].revents};
    fds[2].fd = 1024;
    return Said{polled, zxnet_api_poll(fds, 3, 0), zxnet_api_waitFdTimeout(1024, 0, 5),
                zxnet_api_waitFdTimeout(fd, ZXNET_WAIT_WRITE, UINT32_MAX)};
}

// Waits seven slices of a tenth of a second, and then three, of which the last one does not count.
ZX_SCENARIO(waits_in_slices) {
    count_calls(false);
    const Connection c;
    const std::uint64_t start = clock_us();
    const Said waits{zxnet_api_waitFd(c.near.get(), 0),
                     zxnet_api_waitFdTimeout(c.near.get(), 0, 2)};
    return Said{waits, (clock_us() - start) / 100000,
                zxnet_api_waitFdTimeout(c.near.get(), ZXNET_WAIT_WRITE, 0)};
}

ZX_SCENARIO(tcp_states) {
    count_calls(false);
    const Connection c;
    char kept[ZXNET_TCP_STATE_TEXT_SIZE] = "kept", listens[ZXNET_TCP_STATE_TEXT_SIZE],
         fails[ZXNET_TCP_STATE_TEXT_SIZE], unknown[ZXNET_TCP_STATE_TEXT_SIZE];
    std::uint8_t info[ZXNET_TCP_INFO_SIZE]{};
    return Said{Said{zxnet_api_isTcpStateOK(c.near.get(), info, kept), int{info[0]}, kept},
                Said{zxnet_api_isTcpStateOK(c.listener.fd.get(), nullptr, listens), listens},
                Said{zxnet_api_isTcpStateOK(-1, nullptr, fails), fails},
                zxnet_api_getTcpStateString(12, unknown)};
}

// Sends in pieces; also to an end that is closed.
ZX_SCENARIO(pieces) {
    count_calls(false);
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const UniqueFd near(ends[0]);
    UniqueFd far(ends[1]);
    std::string data(3000, 'd');
    Said said{zxnet_api_epollSend3(near.get(), data.data(), 3000),
              zxnet_api_epollSend(near.get(), data.data(), 3000, ZXNET_NO_WAIT)};
    for (int i = 0; i < 4; ++i) {
        said += Said{"", recv(far.get(), data.data(), data.size(), 0)};
    }
    far.reset();
    return Said{said, zxnet_api_epollSend2(near.get(), nullptr, 0, 100),
                zxnet_api_epollSend2(near.get(), data.data(), 3000, 100),
                zxnet_api_epollSend(near.get(), "x", 1, ZXNET_NO_WAIT)};
}

// Receives from a connection that the other end has closed.
ZX_SCENARIO(ended) {
    const Listener listener;
    const UniqueFd near(connected(SOCK_STREAM, ntohs(listener.address.sin_port)));
    close(accept(listener.fd.get(), nullptr, nullptr));
    char data[8];
    return Said{zxnet_api_epollRecv(near.get(), data, sizeof data, 1000)};
}

ZX_SCENARIO(received) {
    count_calls(false);
    Connection c;
    const int fd = c.near.get();
    zxnet_api_socketNonblock(fd, 1);
    static char data[8];  // not on the stack: the claimed size must not leave the address space
    const Said open{zxnet_api_epollRecv(fd, data, 8, ZXNET_NO_WAIT), send(c.far.get(), "abc", 3, 0),
                    zxnet_api_epollRecv(fd, data, 2, 100), zxnet_api_epollRecv3(fd, data + 2, 6),
                    data};
    c.far.reset();
    zxnet_api_waitFd(fd, ZXNET_WAIT_READ);
    return Said{open, zxnet_api_epollRecv(fd, data, 8, ZXNET_NO_WAIT),
                zxnet_api_epollRecv(fd, data, 3000000000U, 1000)};
}

ZX_SCENARIO(binding) {
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    char name[16] = "";
    socklen_t size = sizeof name;
    const Said bound{zxnet_api_bindIface(-1, ""), zxnet_api_bindIface(fd.get(), "lo")};
    getsockopt(fd.get(), SOL_SOCKET, SO_BINDTODEVICE, name, &size);
    return Said{bound, name};
}

ZX_SCENARIO(names) {
    domainaddr_ctt found{};
    return Said{zxnet_api_parseDomainName("127.0.0.1", nullptr, &found), found.address[0]};
}

ZX_SCENARIO(ping) {
    const std::string longest(103, 'h');
    return results_of(zxnet_api_ping,
                      {longest, "fe80::1%eth0", longest + "h", "", "-f", "a;reboot"});
}

ZX_SCENARIO(interface_addresses) {
    netcfg_info info{"lo", "", "?", "?"};
    char ip[ZXNET_IP_TEXT_SIZE] = "?", same[ZXNET_IP_TEXT_SIZE] = "?";
    char mask[ZXNET_IP_TEXT_SIZE] = "?";
    return Said{Said{zxnet_api_getIfaceInfo(&info), info.ipaddr, info.netmask},
                Said{zxnet_api_getIfaceIp("lo", ip), ip},
                Said{zxnet_api_getIfaceIpMask("lo", same, mask), same, mask}};
}

ZX_SCENARIO(interface_settings) {
    const netcfg_info info{"lo", "", "127.0.0.1", "255.0.0.0"};
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    std::uint8_t mac[ZXNET_MAC_SIZE];
    return Said{zxnet_api_setIfaceInfo(&info), zxnet_api_setIfaceFlags(fd.get(), "lo", 1),
                zxnet_api_getIfaceMac_byte("lo", mac)};
}

// The directory takes the place of the interface's directory in sysfs.
ZX_SCENARIO(interface_files) {
    std::ofstream(in_directory("address")) << "00:11:22:aa:bb:cc\n";
    char mac[64] = "?", mtu[64] = "?";
    return Said{zxnet_api_setIfaceMtu("lo", 1400),
                zxnet_api_getIfaceMac_string("lo", mac, sizeof mac), std::string(mac).substr(0, 1),
                zxnet_api_getIfaceMtu("lo", mtu, sizeof mtu), mtu};
}

}  // namespace
}  // namespace zx::test
