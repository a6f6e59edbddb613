// Sockets on loopback for tests.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zx::test {

using Bytes = std::vector<std::uint8_t>;

sockaddr_in loopback(int port);

// A connected socket. It waits a minute at most when it receives.
int connected(int type, int port);

// The port of a socket.
int port_of(int fd);

// A port that is free at the moment.
int free_port(int type);

void send_all(int fd, const Bytes& bytes);

// Everything until the other side closes, or `limit` bytes.
Bytes receive_all(int fd, std::size_t limit = SIZE_MAX);

}  // namespace zx::test
