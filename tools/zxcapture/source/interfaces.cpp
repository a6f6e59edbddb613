// Lists the network interfaces.
#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pcap/pcap.h>

#include "common/failure.hpp"
#include "source/source.hpp"

namespace capture {
namespace {

std::string text_of(const sockaddr* address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address != nullptr && address->sa_family == AF_INET) {
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(address)->sin_addr, text,
                  sizeof text);
    } else if (address != nullptr && address->sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr, text,
                  sizeof text);
    }
    return text;
}

std::string line_of(const pcap_if_t& device) {
    constexpr std::size_t kNameWidth = IFNAMSIZ;
    std::string line = device.name;
    line.resize(std::max(line.size(), kNameWidth), ' ');
    line += (device.flags & PCAP_IF_UP) == 0        ? "down"
            : (device.flags & PCAP_IF_RUNNING) == 0 ? "up, no carrier"
                                                    : "up";
    const char* before = "  ";
    for (const pcap_addr_t* address = device.addresses; address != nullptr;
         address = address->next) {
        if (const std::string text = text_of(address->addr); !text.empty()) {
            line += before + text;
            before = " ";
        }
    }
    return line + "\n";
}

}  // namespace

std::string list_interfaces() {
    pcap_if_t* first = nullptr;
    char reason[PCAP_ERRBUF_SIZE] = "";
    if (pcap_findalldevs(&first, reason) != 0) {
        throw tools::Failure(std::string("cannot list the interfaces: ") + reason);
    }
    const std::unique_ptr<pcap_if_t, decltype(&pcap_freealldevs)> owned(first, pcap_freealldevs);
    std::string lines;
    for (const pcap_if_t* device = first; device != nullptr; device = device->next) {
        // libpcap also lists things that carry no packets, such as USB.
        if (if_nametoindex(device->name) != 0 || std::string(device->name) == kAnyInterface) {
            lines += line_of(*device);
        }
    }
    return lines;
}

}  // namespace capture
