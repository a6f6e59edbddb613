// The names of protocols, as the frame engine knows them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "packet/packet.hpp"

namespace capture {

// A short name of the innermost protocol whose header is present.
[[nodiscard]] std::string_view protocol_name(const Packet& packet);

// The engine's own name of it, which may be longer, or empty.
[[nodiscard]] std::string_view full_protocol_name(const Packet& packet);

}  // namespace capture
