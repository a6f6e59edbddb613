// Waiting for descriptors, sockets, names, interfaces.
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "internal/guard.hpp"
#include "loopback.hpp"
#include "scenarios.hpp"
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

std::string epoll_set() {
    std::array<int, 2> fds{eventfd(1, EFD_CLOEXEC), eventfd(1, EFD_CLOEXEC)};
    const int epfd = zxepoll_appapi_init(2, &fds, EPOLLIN, fd_at);
    const int changed = zxepoll_mod(epfd, fds[0], EPOLLIN);
    epoll_event events[2];
    const int ready = zxepoll_wait(epfd, events, 2);
    const int ready_now = zxepoll_wait_timeout(epfd, events, 2, 0);
    bool noted = false;
    zxepoll_appapi_dataread(epfd, 2, &noted, note, nullptr);
    const int removed = zxepoll_del(epfd, fds[0], EPOLLIN);
    const int closed = zxepoll_appapi_deinit(epfd, 2, &fds, close_at);
    return Said{epfd >= 0, changed, ready, ready_now, noted, removed, closed};
}

std::string epoll_one() {
    const UniqueFd fd(eventfd(1, EFD_CLOEXEC));
    int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    const int result = zxepoll_waitfd_timeout(epfd, fd.get(), ZXEPOLL_WAIT_READ, 100);
    return Said{result, zxepoll_close(&epfd), epfd};
}

struct Pair {
    explicit Pair(int type) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
        near = ends[0];
        far = ends[1];
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;
    ~Pair() {
        close(near);
        close(far);
    }
    int near, far;
};

std::string polls() {
    const Pair pair(SOCK_STREAM);
    const int made = zxnet_api_socketNonblock(pair.near, 1);
    pollfd_ctt record{pair.near, ZXNET_POLL_WRITE, 0};
    const int polled = zxnet_api_poll(&record, 1, 0);
    const int waited = zxnet_api_waitFd(pair.near, ZXNET_WAIT_WRITE);
    return Said{made, polled, waited, zxnet_api_waitFdTimeout(pair.near, ZXNET_WAIT_WRITE, 2)};
}

std::string exchange() {
    const Pair pair(SOCK_STREAM);
    char data[2000] = "";
    const int sent = zxnet_api_epollSend2(pair.near, data, sizeof data, 20);
    return Said{sent, zxnet_api_epollRecv(pair.far, data, sizeof data, 20)};
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

std::string connection() {
    const Listener listener;
    const UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const auto* const address = reinterpret_cast<const sockaddr*>(&listener.address);
    return Said{zxnet_api_socketConnect(fd.get(), address, sizeof listener.address, 500000, 1)};
}

std::string reachable() {
    const Listener listener;
    return Said{zxnet_api_isReachable("127.0.0.1", ntohs(listener.address.sin_port))};
}

// Receives from a connection that the other side has closed.
std::string ended() {
    const Listener listener;
    const UniqueFd near(connected(SOCK_STREAM, ntohs(listener.address.sin_port)));
    close(accept(listener.fd.get(), nullptr, nullptr));
    char data[8];
    return Said{zxnet_api_epollRecv(near.get(), data, sizeof data, 1000)};
}

std::string binding() {
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return Said{zxnet_api_bindIface(fd.get(), "lo")};
}

std::string names() {
    domainaddr_ctt found{};
    const int result = zxnet_api_parseDomainName("127.0.0.1", nullptr, &found);
    return Said{result, int{found.count}, found.address[0]};
}

std::string ping() {
    return Said{zxnet_api_ping("127.0.0.1")};
}

std::string interface_info() {
    netcfg_info info{"lo", "", "?", "?"};
    const int result = zxnet_api_getIfaceInfo(&info);
    return Said{result, info.ipaddr, info.netmask};
}

std::string interface_ip() {
    char ip[ZXNET_IP_TEXT_SIZE] = "?";
    const int result = zxnet_api_getIfaceIp("lo", ip);
    return Said{result, ip};
}

std::string interface_mask() {
    char ip[ZXNET_IP_TEXT_SIZE] = "?", mask[ZXNET_IP_TEXT_SIZE] = "?";
    const int result = zxnet_api_getIfaceIpMask("lo", ip, mask);
    return Said{result, ip, mask};
}

std::string interface_mac() {
    std::uint8_t mac[ZXNET_MAC_SIZE] = {1};
    const int result = zxnet_api_getIfaceMac_byte("lo", mac);
    return Said{result, int{mac[0]}};
}

std::string interface_set() {
    const netcfg_info info{"lo", "", "127.0.0.1", "255.0.0.0"};
    return Said{zxnet_api_setIfaceInfo(&info)};
}

std::string interface_flags() {
    const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return Said{zxnet_api_setIfaceFlags(fd.get(), "lo", 1)};
}

// A directory of ours as the kernel's one of an interface.
std::string interface_files() {
    const std::string name = "../../.." + g_directory;
    std::ofstream(in_directory("address")) << "00:11:22:aa:bb:cc\n";
    char mac[64] = "?", mtu[64] = "?";
    const int set = zxnet_api_setIfaceMtu(name.c_str(), 1400);
    const int got_mac = zxnet_api_getIfaceMac_string(name.c_str(), mac, sizeof mac);
    const int got_mtu = zxnet_api_getIfaceMtu(name.c_str(), mtu, sizeof mtu);
    return Said{set, got_mac, std::string(mac).substr(0, 1), got_mtu, mtu};
}

}  // namespace

const std::vector<Scenario> kNetworkScenarios{{"epoll_set", epoll_set},
                                              {"epoll_one", epoll_one},
                                              {"polls", polls},
                                              {"exchange", exchange},
                                              {"connection", connection},
                                              {"reachable", reachable},
                                              {"ended", ended},
                                              {"binding", binding},
                                              {"names", names},
                                              {"ping", ping},
                                              {"interface_info", interface_info},
                                              {"interface_ip", interface_ip},
                                              {"interface_mask", interface_mask},
                                              {"interface_mac", interface_mac},
                                              {"interface_set", interface_set},
                                              {"interface_flags", interface_flags},
                                              {"interface_files", interface_files}};

}  // namespace zx::test
