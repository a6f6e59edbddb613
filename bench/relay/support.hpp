// What the programs that measure the relay share: numbered packets, sockets, arguments.
#pragma once

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <thread>

#include "common/failure.hpp"
#include "zxcommon.hpp"

namespace bench {

inline constexpr std::size_t kPacketSize = 188;
inline constexpr std::size_t kMessageSize = 7 * kPacketSize;
inline constexpr std::uint8_t kSyncByte = 0x47;
inline constexpr std::size_t kNumberAt = 4;  // after the header of a transport stream packet

// Writes the header and the number of a packet. The rest of it is never looked at.
inline void write_packet(std::uint8_t* packet, std::uint64_t number) {
    constexpr std::uint8_t kPayloadOnly = 0x10;
    const std::uint8_t header[] = {kSyncByte, 0x01, 0x00,
                                   static_cast<std::uint8_t>(kPayloadOnly | (number & 0x0fU))};
    std::memcpy(packet, header, sizeof header);
    std::memcpy(packet + kNumberAt, &number, sizeof number);
}

inline std::uint64_t read_number(const std::uint8_t* packet) {
    std::uint64_t number;
    std::memcpy(&number, packet + kNumberAt, sizeof number);
    return number;
}

inline sockaddr_in loopback(const char* port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::strtoul(port, nullptr, 10)));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline zxcommon::Descriptor open_socket(int type) {
    zxcommon::Descriptor fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (type == SOCK_STREAM) {
        setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    return fd;
}

// Connects to a port of this machine. A server that has just been started may take some seconds.
inline zxcommon::Descriptor connect_to(const char* port, int type) {
    constexpr int kAttempts = 100;
    const sockaddr_in address = loopback(port);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        zxcommon::Descriptor fd = open_socket(type);
        if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return fd;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    throw tools::system_failure(std::string("cannot connect to port ") + port);
}

inline zxcommon::Descriptor bind_to(const char* port, int type) {
    zxcommon::Descriptor fd = open_socket(type);
    const sockaddr_in address = loopback(port);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        (type == SOCK_STREAM && listen(fd.get(), SOMAXCONN) != 0)) {
        throw tools::system_failure(std::string("cannot use port ") + port);
    }
    return fd;
}

// "tcp" or "udp" as a type of sockets.
inline int socket_type(const char* name) {
    return std::strcmp(name, "udp") == 0 ? SOCK_DGRAM : SOCK_STREAM;
}

}  // namespace bench
