// Addresses as texts and as numbers.
#include "zxnet.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>

#include "internal/log.hpp"
#include "zxnet/addresses.hpp"
#include "zxnet/dotted.hpp"
#include "zxstr.h"

namespace {

constexpr char kTag[] = "NETWORK";
constexpr zx::DottedForm kAddress{"pipaddr_start", ZXNET_IP_TEXT_SIZE, zxstr_api_split};
static_assert(kAddress.size <= zx::kDottedSize);

}  // namespace

extern "C" int32_t zxnet_api_isIpv6(const char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("text");
        return 0;
    }
    return zxstr_api_isCasestr(text, ":");
}

extern "C" int32_t zxnet_api_isMulticast(const char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("text");
        return 0;
    }
    if (zxnet_api_isIpv6(text) != 0) {
        in6_addr address{};
        inet_pton(AF_INET6, text, &address);  // leaves what is no address alone
        return address.s6_addr[0] == 0xFF ? 1 : 0;
    }
    return IN_MULTICAST(ntohl(inet_addr(text))) ? 1 : 0;
}

extern "C" void zxnet_api_outIpv6(char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("text");
        return;
    }
    if (zxnet_api_isIpv6(text) == 0) {
        std::memmove(text + zx::kMapped.size(), text, std::strlen(text) + 1);
        std::memcpy(text, zx::kMapped.data(), zx::kMapped.size());
    }
}

extern "C" uint32_t zxnet_api_ipStr2Byte(const char* text) {
    if (text == nullptr) {
        ZX_LOG_PARAM("text");
        return 0;
    }
    return zx::parse_dotted(kAddress, text).value_or(0);
}

extern "C" int32_t zxnet_api_ipByte2Str(uint32_t ip, char* out) {
    if (out == nullptr) {
        ZX_LOG_PARAM("out");
        return 0;
    }
    const std::size_t old_length = std::strlen(out);
    const std::size_t length = zx::print_dotted(ip, out);
    if (old_length > length) {
        std::memset(out + length, 0, old_length - length);
    }
    return static_cast<int32_t>(length);
}

extern "C" uint32_t zxnet_api_getIpList(const char* start, const char* end, char* out,
                                        uint8_t stride) {
    if (start == nullptr || end == nullptr || out == nullptr) {
        ZX_LOG_PARAM(start == nullptr ? "start" : end == nullptr ? "end" : "out");
        return 0;
    }
    const std::uint32_t first = zxnet_api_ipStr2Byte(start);
    const std::uint32_t last = zxnet_api_ipStr2Byte(end);
    std::uint32_t count = 0;
    for (std::uint32_t ip = first; ip <= last; ++ip) {
        zxnet_api_ipByte2Str(ip, out + std::size_t{stride} * count++);
    }
    return count;
}
