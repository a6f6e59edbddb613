// What the line of a frame says about its layers, after the length.
#pragma once

#include "packet/packet.hpp"
#include "show/interface_names.hpp"
#include "show/text.hpp"

namespace capture {

// Each detail begins with a blank. With `is_verbose`, there are more: fields of IP, TCP and RTP,
// sources of groups, and whether the checksums are right.
void add_details(Text& text, const Frame& frame, const Packet& packet, bool is_verbose);

// The addresses and the type of the link, with a blank after them; nothing for a link without. An
// interface is shown by its number if `interfaces` is null or does not know it.
void add_link(Text& text, const Frame& frame, const Packet& packet, InterfaceNames* interfaces);

}  // namespace capture
