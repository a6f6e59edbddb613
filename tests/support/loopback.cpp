#include "loopback.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "internal/guard.hpp"

namespace zx::test {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int connected(int type, int port) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const timeval limit{60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return fd;
}

int port_of(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return ntohs(address.sin_port);
}

// Connections get their ports from the kernel, from 32768 on, so these are free of them. Tests that
// run at the same time begin at different ports.
int free_port(int type) {
    constexpr int kFirst = 10000;
    constexpr int kCount = 15000;
    constexpr int kEach = 20;
    static int asked = 0;
    for (int i = 0; i < kCount; ++i) {
        const int port = kFirst + (getpid() * kEach + asked++) % kCount;
        const zx::UniqueFd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
        const sockaddr_in address = loopback(port);
        if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return port;
        }
    }
    ADD_FAILURE() << "no port is free";
    return 0;
}

void send_all(int fd, const Bytes& bytes) {
    std::size_t at = 0;
    while (at < bytes.size()) {
        const ssize_t sent = send(fd, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        ASSERT_GT(sent, 0);
        at += static_cast<std::size_t>(sent);
    }
}

Bytes receive_all(int fd, std::size_t limit) {
    Bytes bytes;
    std::uint8_t chunk[65536];
    ssize_t size;
    while (bytes.size() < limit && (size = recv(fd, chunk, sizeof chunk, 0)) > 0) {
        bytes.insert(bytes.end(), chunk, chunk + size);
    }
    return bytes;
}

}  // namespace zx::test
