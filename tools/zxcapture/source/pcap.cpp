#include "source/pcap.hpp"

#include <algorithm>

#include "common/failure.hpp"

namespace capture {
namespace {

constexpr std::int64_t kNano = 1000000000;
constexpr std::int64_t kLastSecond = INT64_MAX / kNano - 1;

timespec time_of(const timeval& time) {
    const std::int64_t nanos = time.tv_usec;  // nanoseconds, as both sources request
    std::int64_t second = time.tv_sec;
    if (second < 0 && second >= INT32_MIN) {
        second += std::int64_t{1} << 32U;  // 32 bits without a sign, which libpcap reads with one
    }
    second = std::clamp(second, std::int64_t{0}, kLastSecond) +
             std::clamp(nanos, std::int64_t{0}, std::int64_t{UINT32_MAX}) / kNano;
    return {std::min(second, kLastSecond), std::max(nanos, std::int64_t{0}) % kNano};
}

}  // namespace

int known_link(pcap_t* pcap, const std::string& name) {
    constexpr int kKnown[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                              DLT_IPV4,   DLT_IPV6,      DLT_NULL,       DLT_LOOP};
    const int link = pcap_datalink(pcap);
    if (std::ranges::find(kKnown, link) == std::end(kKnown)) {
        throw tools::Failure(name + " does not contain Ethernet frames: its link type is " +
                             pcap_datalink_val_to_description_or_dlt(link));
    }
    return link;
}

Frame frame_of(const pcap_pkthdr& header, const u_char* bytes, int link) {
    return {{bytes, header.caplen}, std::max(header.len, header.caplen), time_of(header.ts), link};
}

}  // namespace capture
