// What both sources do with libpcap.
#pragma once

#include <pcap/pcap.h>

#include <memory>
#include <string>

#include "source/frame.hpp"

namespace capture {

struct PcapCloser {
    void operator()(pcap_t* pcap) const { pcap_close(pcap); }
};
using Pcap = std::unique_ptr<pcap_t, PcapCloser>;

// The link type of the source `name`. Throws a Failure if its frames cannot be taken apart.
int known_link(pcap_t* pcap, const std::string& name);

// The frame that libpcap has read, with nanoseconds. Damaged files contain times and lengths that
// cannot be; these become the nearest that can.
Frame frame_of(const pcap_pkthdr& header, const u_char* bytes, int link);

}  // namespace capture
