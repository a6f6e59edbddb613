// Waiting for descriptors, sockets, names, interfaces.
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "faults.hpp"
#include "internal/guard.hpp"
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
    const UniqueFd fd(eventfd(1, EFD_CLOEXEC));
    int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    const UniqueFd of_cancelled(epfd);
    const auto [near, far] = stream_pair();
    shutdown(far.get(), SHUT_RDWR);
    return Said{zxepoll_waitfd_timeout(epfd, fd.get(), ZXEPOLL_WAIT_READ, 100),
                zxepoll_waitfd_timeout(epfd, near.get(), ZXEPOLL_WAIT_READ, 100),
                zxepoll_add(epfd, fd.get(), EPOLLIN),
                zxepoll_waitfd_timeout_noopt(epfd, fd.get(), ZXEPOLL_WAIT_READ, 100),
                zxepoll_close(&epfd),
                epfd};
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

// Receives from a connection that the other side has closed.
ZX_SCENARIO(ended) {
    const Listener listener;
    const UniqueFd near(connected(SOCK_STREAM, ntohs(listener.address.sin_port)));
    close(accept(listener.fd.get(), nullptr, nullptr));
    char data[8];
    return Said{zxnet_api_epollRecv(near.get(), data, sizeof data, 1000)};
}

ZX_SCENARIO(binding) {
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return Said{zxnet_api_bindIface(fd.get(), "lo")};
}

ZX_SCENARIO(names) {
    domainaddr_ctt found{};
    return Said{zxnet_api_parseDomainName("127.0.0.1", nullptr, &found), found.address[0]};
}

ZX_SCENARIO(ping) {
    return Said{zxnet_api_ping("127.0.0.1")};
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

// The directory is the kernel's one of the interface.
ZX_SCENARIO(interface_files) {
    std::ofstream(in_directory("address")) << "00:11:22:aa:bb:cc\n";
    char mac[64] = "?", mtu[64] = "?";
    return Said{zxnet_api_setIfaceMtu("lo", 1400),
                zxnet_api_getIfaceMac_string("lo", mac, sizeof mac), std::string(mac).substr(0, 1),
                zxnet_api_getIfaceMtu("lo", mtu, sizeof mtu), mtu};
}

}  // namespace
}  // namespace zx::test
