// Flaws inside a header: in the options of TCP and of neighbour discovery, and in lists of groups.
#pragma once

#include "packet/packet.hpp"

namespace capture {

// Returns the flaw that dissect() has found. If there is none, it looks deeper: into the TCP
// options, the groups of IGMP and MLD, and the messages of neighbour discovery. This takes longer,
// so it is for what shows the flaw.
[[nodiscard]] Flaw flaw_of(const Frame& frame, const Packet& packet);

}  // namespace capture
