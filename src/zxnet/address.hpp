// How addresses are printed.
#pragma once

#include <sys/socket.h>

#include <cstdint>

namespace zx::net {

// Writes an address over another text, of which nothing remains. Returns the length.
std::int32_t print_over(std::uint32_t ip, char* text);

// `out` has ZXNET_ADDRESS_TEXT_SIZE bytes. Every family but AF_INET6 counts as IPv4.
void print_sockaddr(const sockaddr* sa, char* out);

}  // namespace zx::net
