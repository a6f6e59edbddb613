// Resolving the names of hosts.
#pragma once

#include <netinet/in.h>

#include <optional>

namespace zx::net {

// The first IPv4 address of a host, without a port.
[[nodiscard]] std::optional<sockaddr_in> resolve_ipv4(const char* host);

}  // namespace zx::net
