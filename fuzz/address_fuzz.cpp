// Reads any text as an address, a mask, a network or a MAC address. Texts end at the guard; outputs
// have the size that the header asks for, and what is said is compared, too.
#include <arpa/inet.h>

#include <optional>
#include <string>

#include "said.hpp"
#include "support.hpp"
#include "zxnet.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxText = 4096;

char* chars(std::uint8_t* bytes) {
    return reinterpret_cast<char*>(bytes);
}

// What the header says of dotted texts, the plain way. `lines` gets what is said of `name`.
std::optional<std::uint32_t> read_dotted(std::string text, std::size_t size,
                                         zx::fuzz::Lines* lines = nullptr,
                                         const char* name = nullptr) {
    if (lines != nullptr && text.size() >= size) {
        lines->say(2, "There is a bug that buf1 (%zu < %zu)(%s),please fix!!", size,
                   text.size() + 1, text.c_str());
    }
    text.resize(std::min(text.size(), size));
    std::uint32_t ip = 0;
    int count = 0;
    char* rest = nullptr;
    for (char* field = strtok_r(text.data(), ".", &rest); field != nullptr;
         field = strtok_r(nullptr, ".", &rest), ++count) {
        ip = ip << 8U | (static_cast<std::uint32_t>(std::strtol(field, nullptr, 10)) & 0xFFU);
    }
    if (lines != nullptr && count != 4) {
        lines->say(1, "Error %s(%s),num is %d", name, text.c_str(), count);
    }
    return count == 4 ? std::optional(ip) : std::nullopt;
}

void read_mac(const char* at, std::uint8_t (&mac)[ZXNET_MAC_SIZE]) {
    for (std::uint8_t& byte : mac) {
        char* end = nullptr;
        byte = static_cast<std::uint8_t>(std::strtoul(at, &end, 16));
        at = *end != '\0' ? end + 1 : end;
    }
}

std::string dotted(std::uint32_t ip) {
    return inet_ntoa({htonl(ip)});
}

void check_address(GuardedMemory& out, const std::string& text, const char* placed) {
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    const std::uint32_t ip = zxnet_api_ipStr2Byte(placed);
    require(ip == read_dotted(text, ZXNET_IP_TEXT_SIZE, &lines, "pipaddr_start").value_or(0),
            "the address");
    require(zx::fuzz::take_said() == lines.said, "the lines of the address");
    std::string expected = dotted(ip);
    const auto length = static_cast<int32_t>(expected.size());
    char* const exact = chars(out.fill(expected.size() + 1, 0));
    require(zxnet_api_ipByte2Str(ip, exact) == length && exact == expected,
            "no more than the text");
    char* const printed = out.old_text(ZXNET_IP_TEXT_SIZE);
    require(zxnet_api_ipByte2Str(ip, printed) == length, "the length of the text");
    expected.resize(ZXNET_IP_TEXT_SIZE);
    require(std::string(printed, ZXNET_IP_TEXT_SIZE) == expected, "the text and what it clears");
    in_addr address{};
    if (inet_pton(AF_INET, placed, &address) == 1) {
        require(ntohl(address.s_addr) == ip && text == printed, "as the C library has it");
        require(zxnet_api_isMulticast(placed) == (ip >> 28U == 14 ? 1 : 0), "a group");
        require(zxnet_api_isResIpaddr(placed) == (ip >> 22U == 0x64400000U >> 22U ? 1 : 0),
                "the shared space");
    }
    in6_addr address6{};
    if (inet_pton(AF_INET6, placed, &address6) == 1) {
        require(zxnet_api_isIpv6(placed) == 1, "IPv6");
        require(zxnet_api_isMulticast(placed) == (address6.s6_addr[0] == 0xFF ? 1 : 0), "a group");
    }
    zxnet_api_isResIpaddr(placed);
    zxnet_api_getIpMode(placed);

    char* const mapped = out.text(text, 7);
    const bool is_ipv6 = text.find(':') != std::string::npos;
    zxnet_api_outIpv6(mapped);
    require(mapped == (is_ipv6 ? text : "::ffff:" + text), "mapped to IPv6");
}

void check_mac(GuardedMemory& out, const char* placed) {
    std::uint8_t expected[ZXNET_MAC_SIZE];
    read_mac(placed, expected);
    std::uint8_t mac[ZXNET_MAC_SIZE];
    std::uint8_t* const read = out.fill(sizeof mac, 0xEE);
    require(zxnet_api_macStr2Byte(placed, read) == 0, "a MAC text");
    std::memcpy(mac, read, sizeof mac);
    require(std::memcmp(mac, expected, sizeof mac) == 0, "the MAC address");
    require(zxnet_api_isVaildMac(placed) == (mac[0] % 2 == 0 ? 1 : 0), "a single station");

    // Both append; what they write ends at the guard.
    std::string short_digits = "x";
    std::string all_digits = "x";
    for (std::size_t i = 0; i < sizeof mac; ++i) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "%s%x", i > 0 ? ":" : "", mac[i]);
        short_digits += digits;
        std::snprintf(digits, sizeof digits, "%02x", mac[i]);
        all_digits += digits;
    }
    char* const bytes = out.text("x", short_digits.size() - 1);
    require(zxnet_api_macByte2str(mac, sizeof mac, bytes) == sizeof mac && bytes == short_digits,
            "the bytes");
    char* const hex = out.text("x", all_digits.size() - 1);
    require(zxnet_api_num2str16(mac, sizeof mac, hex) == sizeof mac && hex == all_digits,
            "the digits");

    char* const group = out.old_text(ZXNET_MAC_TEXT_SIZE);
    require(zxnet_api_getMulticastDestMac(group, placed) == ZXNET_MAC_TEXT_SIZE - 1,
            "the MAC text of a group");
}

void check_network(GuardedMemory& out, const std::string& ip_text, const char* ip,
                   const std::string& mask_text, const char* mask) {
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    const auto netmask = read_dotted(mask_text, 256, &lines, "netmask");
    const auto address =
        netmask ? read_dotted(ip_text, 256, &lines, "ipaddr") : read_dotted(ip_text, 256);
    const bool is_network = address && netmask;
    const std::int32_t bits = zxnet_api_getNetmaskBitNum(mask);
    require(bits >= 0 && bits <= 32, "the bits of a mask");
    const std::uint32_t expected = is_network ? *address & *netmask : 0;

    const char* const subnet = out.old_text(ZXNET_IP_TEXT_SIZE);
    zx::fuzz::take_said();
    const std::int32_t length = zxnet_api_subnet(ip, mask, out.old_text(ZXNET_IP_TEXT_SIZE));
    require(is_network ? subnet == dotted(expected) : length == 0, "the network");
    require(zx::fuzz::take_said() == lines.said, "the lines of the network");

    static GuardedMemory gateways(ZXNET_IP_TEXT_SIZE);
    const char* const network = chars(out.fill(ZXNET_NETWORK_TEXT_SIZE, 'x'));
    char* const gateway = chars(gateways.fill(ZXNET_IP_TEXT_SIZE, 'x'));
    zxnet_api_getGatewayByNetmask(ip, mask, const_cast<char*>(network), gateway);
    if (is_network) {
        require(network == dotted(expected) + "/" + std::to_string(bits), "the network");
        const std::string first = dotted(expected);
        require(gateway ==
                    first.substr(0, first.rfind('.') + 1) + std::to_string((expected & 0xFFU) + 1),
                "the gateway");
    }
}

void check_list(GuardedMemory& out, const std::string& first_text, const char* first) {
    constexpr std::uint8_t kStride = ZXNET_IP_TEXT_SIZE;
    constexpr std::uint32_t kCount = 5;
    const std::uint32_t ip = read_dotted(first_text, ZXNET_IP_TEXT_SIZE).value_or(0);
    if (ip >= UINT32_MAX - kCount) {
        return;  // an end that is never reached
    }
    char* const list = chars(out.fill(kCount * kStride, 0));
    const std::string last = dotted(ip + kCount - 1);
    require(zxnet_api_getIpList(first, last.c_str(), list, kStride) == kCount, "a list");
    require(list + 4 * kStride == last, "the end of a list");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory texts(kMaxText);
    static GuardedMemory masks(kMaxText);
    static GuardedMemory out(kMaxText);

    // Two texts with a NUL between them, behind the log level.
    Input input({data, std::min<std::size_t>(size, kMaxText / 2)});
    zxlog_api_setLoglevel(input.take<std::uint8_t>() % 6);
    const Bytes both = input.rest();
    const std::string text = input.take_line(kMaxText);
    const std::string second = input.empty() ? text : input.take_text(kMaxText);
    const char* const placed = texts.text(text);
    check_address(out, text, placed);
    check_mac(out, placed);
    check_list(out, text, placed);
    check_network(out, text, placed, second, masks.text(second));

    sockaddr_storage socket{};
    std::copy_n(both.begin(), std::min(both.size(), sizeof socket),
                reinterpret_cast<std::uint8_t*>(&socket));
    const void* const address = &socket;
    char* const printed = chars(out.fill(ZXNET_ADDRESS_TEXT_SIZE, 'x'));
    for (const sa_family_t family : {sa_family_t{AF_INET}, sa_family_t{AF_INET6}}) {
        socket.ss_family = family;
        zxnet_api_getIpaddr(static_cast<const sockaddr*>(address), printed);
        require(std::strlen(printed) < ZXNET_ADDRESS_TEXT_SIZE, "the text of a socket's address");
    }
    return 0;
}
