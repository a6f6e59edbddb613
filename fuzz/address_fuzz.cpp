// Reads any text as an address, a mask, a network, a MAC address or the name of a host, which may
// have any addresses. Texts end at the guard, and outputs have the size that the header asks for.
// The log lines are compared, too.
#include <arpa/inet.h>
#include <netdb.h>

#include <optional>
#include <string>
#include <vector>

#include "said.hpp"
#include "support.hpp"
#include "zxnet.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxText = 4096;
constexpr std::string_view kModes[] = {"unkonw", "static", "dhcp", "bond-slaver", "bond-master"};

char* chars(std::uint8_t* bytes) {
    return reinterpret_cast<char*>(bytes);
}

// How a function reads a dotted text: its name for the text, how many bytes it reads, and whether
// empty fields count.
struct Form {
    const char* name;
    std::size_t size;
    bool counts_empty = false;
};
constexpr Form kAddress{"pipaddr_start", ZXNET_IP_TEXT_SIZE};
constexpr Form kNetmask{"netmask", 256};
constexpr Form kOfNetwork{"ipaddr", 256};
constexpr Form kShared{"ipaddr", 256, true};

// Reads a dotted text as the header describes it.
std::optional<std::uint32_t> read_dotted(std::string text, const Form& form,
                                         zx::fuzz::Lines& lines) {
    if (text.size() >= form.size) {
        lines.say(2, "There is a bug that buf1 (%zu < %zu)(%s),please fix!!", form.size,
                  text.size() + 1, text.c_str());
    }
    text.resize(std::min(text.size(), form.size));
    std::uint32_t ip = 0;
    int count = 0;
    for (std::size_t at = 0, end = 0; end != std::string::npos; at = end + 1) {
        end = text.find('.', at);
        const std::string field = text.substr(at, end - at);
        if (!field.empty() || (form.counts_empty && end != std::string::npos)) {
            ip = ip << 8U |
                 (static_cast<std::uint32_t>(std::strtol(field.c_str(), nullptr, 10)) & 0xFFU);
            ++count;
        }
    }
    if (count != 4) {
        // The line shows the text up to the first cut.
        const std::size_t first = form.counts_empty ? 0 : text.find_first_not_of('.');
        lines.say(1, "Error %s(%s),num is %d", form.name,
                  text.substr(0, text.find('.', first)).c_str(), count);
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

// All `size` bytes of a buffer for a text.
std::string all(const char* out, std::size_t size) {
    return {out, size};
}
std::string cleared(std::string text, std::size_t size) {
    text.resize(size);
    return text;
}

void check_address(GuardedMemory& out, const std::string& text, const char* placed) {
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    const std::uint32_t ip = zxnet_api_ipStr2Byte(placed);
    require(ip == read_dotted(text, kAddress, lines).value_or(0), "the address");
    const std::string expected = dotted(ip);
    const auto length = static_cast<int32_t>(expected.size());
    char* const exact = chars(out.fill(expected.size() + 1, 0));
    require(zxnet_api_ipByte2Str(ip, exact) == length && exact == expected,
            "no more than the text");
    char* const printed = out.old_text(ZXNET_IP_TEXT_SIZE);
    require(zxnet_api_ipByte2Str(ip, printed) == length, "the length of the text");
    require(all(printed, ZXNET_IP_TEXT_SIZE) == cleared(expected, ZXNET_IP_TEXT_SIZE),
            "the text and what it clears");
    const std::uint32_t netorder = htonl(ip);
    require(zxnet_api_net2str(&netorder) == expected, "the text of a number");
    in_addr address{};
    if (inet_pton(AF_INET, placed, &address) == 1) {
        require(address.s_addr == netorder && text == printed, "as the C library has it");
    }
    const bool is_ipv6 = text.find(':') != std::string::npos;
    if (is_ipv6) {
        lines.say(4, "no support  ipv6");
    }
    const std::uint32_t shared = is_ipv6 ? 0 : read_dotted(text, kShared, lines).value_or(0);
    require(zxnet_api_isResIpaddr(placed) == (shared >> 22U == 0x64400000U >> 22U ? 1 : 0),
            "the shared space");
    require(zx::fuzz::take_said() == lines.said, "the lines of the address");
    in6_addr address6{};
    const bool is_group =
        is_ipv6 ? inet_pton(AF_INET6, placed, &address6) == 1 && address6.s6_addr[0] == 0xFF
                : ntohl(inet_addr(placed)) >> 28U == 14;
    require(zxnet_api_isIpv6(placed) == (is_ipv6 ? 1 : 0), "IPv6");
    require(zxnet_api_isMulticast(placed) == (is_group ? 1 : 0), "a group");
    const auto* const mode = std::find(std::begin(kModes), std::end(kModes), text);
    require(zxnet_api_getIpMode(placed) == (mode == std::end(kModes) ? 0 : mode - kModes),
            "a way of configuring");

    char* const mapped = out.text(text, 7);
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

    // Both functions append. The result ends at the guard.
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

    for (auto* const copy : {zxnet_api_num2str, zxnet_api_str2num}) {
        std::uint8_t* const to = out.fill(sizeof mac, 0);
        copy(mac, sizeof mac, to);
        require(std::memcmp(mac, to, sizeof mac) == 0, "a copy");
    }

    char expected_group[ZXNET_MAC_TEXT_SIZE];
    const std::uint32_t ip = ntohl(inet_addr(placed));
    std::snprintf(expected_group, sizeof expected_group, "01:00:5e:%02x:%02x:%02x",
                  ip >> 16U & 0xFFU, ip >> 8U & 0xFFU, ip & 0xFFU);
    for (const std::size_t size : {sizeof expected_group, sizeof expected_group + 6}) {
        char* const group = out.old_text(size);
        require(zxnet_api_getMulticastDestMac(group, placed) == ZXNET_MAC_TEXT_SIZE - 1 &&
                    all(group, size) == cleared(expected_group, size),
                "the MAC text of a group");
    }
}

// Counts the bits of each byte. A byte whose bits are not contiguous from the left counts as 0.
std::int32_t bits_of(std::uint32_t mask) {
    constexpr std::uint8_t kRows[] = {0, 128, 192, 224, 240, 248, 252, 254, 255};
    std::int32_t bits = 0;
    for (const unsigned shift : {0U, 8U, 16U, 24U}) {
        const auto* const row =
            std::find(std::begin(kRows), std::end(kRows), mask >> shift & 0xFFU);
        bits += row != std::end(kRows) ? static_cast<std::int32_t>(row - kRows) : 0;
    }
    return bits;
}

void check_network(GuardedMemory& out, const std::string& ip_text, const char* ip,
                   const std::string& mask_text, const char* mask) {
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    const auto netmask = read_dotted(mask_text, kNetmask, lines);
    require(zxnet_api_getNetmaskBitNum(mask) == bits_of(netmask.value_or(0)), "the bits of a mask");
    require(zx::fuzz::take_said() == lines.said, "the lines of a mask");

    // The mask is checked first.
    const auto address = netmask ? read_dotted(ip_text, kOfNetwork, lines) : std::nullopt;
    const std::string network = dotted(address ? *address & *netmask : 0);
    const std::string first = network.substr(0, network.rfind('.') + 1) +
                              std::to_string(address ? (*address & *netmask & 0xFFU) + 1 : 0);
    const auto length_of = [&address](const std::string& text) {
        return address ? static_cast<std::int32_t>(text.size()) : 0;
    };
    char* const subnet = out.old_text(ZXNET_IP_TEXT_SIZE);
    const std::string old = subnet;
    require(
        zxnet_api_subnet(ip, mask, subnet) == length_of(network) &&
            all(subnet, ZXNET_IP_TEXT_SIZE) == cleared(address ? network : old, ZXNET_IP_TEXT_SIZE),
        "the network");
    require(zx::fuzz::take_said() == lines.said, "the lines of the network");

    static GuardedMemory gateways(ZXNET_IP_TEXT_SIZE);
    char* const with_bits = out.old_text(ZXNET_NETWORK_TEXT_SIZE);
    const std::string old_bits = with_bits;
    char* const gateway = gateways.old_text(ZXNET_IP_TEXT_SIZE);
    require(zxnet_api_getGatewayByNetmask(ip, mask, with_bits, gateway) == length_of(first),
            "the length of a gateway");
    require(with_bits == (address ? network + "/" + std::to_string(bits_of(*netmask)) : old_bits) &&
                gateway == (address ? first : old),
            "a network with its bits, and its gateway");
    zx::fuzz::take_said();
}

void check_list(GuardedMemory& out, const std::string& first_text, const char* first) {
    constexpr std::uint8_t kStride = ZXNET_IP_TEXT_SIZE;
    constexpr std::uint32_t kCount = 5;
    zx::fuzz::Lines lines{"NETWORK", 0};
    const std::uint32_t ip = read_dotted(first_text, kAddress, lines).value_or(0);
    if (ip >= UINT32_MAX - kCount) {
        return;  // the list would never end
    }
    char* const list = chars(out.fill(kCount * kStride, 0));
    const std::string last = dotted(ip + kCount - 1);
    require(zxnet_api_getIpList(first, last.c_str(), list, kStride) == kCount, "a list");
    require(list + 4 * kStride == last, "the end of a list");
    require(zxnet_api_getIpList(last.c_str(), first, list, kStride) == 0, "no list");
}

// The addresses of a name, which getaddrinfo() below returns.
std::vector<sockaddr_in6> g_addresses;
std::vector<addrinfo> g_list;
int g_answer = 0;

std::string printed(const sockaddr_in6& socket) {
    char text[INET6_ADDRSTRLEN];
    if (socket.sin6_family == AF_INET6) {
        return inet_ntop(AF_INET6, &socket.sin6_addr, text, sizeof text);
    }
    return inet_ntop(AF_INET, &socket.sin6_flowinfo, text, sizeof text);  // for IPv4
}

void check_socket(GuardedMemory& out, const sockaddr_in6& socket) {
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    char* const text = out.old_text(ZXNET_ADDRESS_TEXT_SIZE);
    const void* const address = &socket;
    zxnet_api_getIpaddr(static_cast<const sockaddr*>(address), text);
    const std::string whole = printed(socket);
    const bool is_mapped = whole.starts_with("::ffff:");
    const std::string expected = is_mapped ? whole.substr(7) : whole;
    if (is_mapped) {
        lines.say(5, "---ipv6,ipv4:%s,%s", ("::ffff:" + expected).c_str(), expected.c_str());
    } else {
        lines.say(5, "---ipv%d:%s", socket.sin6_family == AF_INET6 ? 6 : 4, whole.c_str());
    }
    require(text == expected, "the text of a socket's address");
    require(zx::fuzz::take_said() == lines.said, "the line of a socket's address");
}

// A long text continues in the next slot, but never leaves the record.
void check_host(const std::string& host, const char* placed) {
    static GuardedMemory records(sizeof(domainaddr_ctt));
    zx::fuzz::Lines lines{"NETWORK", zxlog_api_getLoglevel()};
    zx::fuzz::take_said();
    std::string record(sizeof(domainaddr_ctt), host.empty() ? 'x' : '\0');
    if (host.empty()) {
        lines.say(1, "phostname  len is 0,ret -1");
    } else if (g_answer != 0) {
        lines.say(1, "getaddrinfo %s failed", placed);
    } else if (g_addresses.empty()) {
        lines.say(1, "No addrinfo");
    } else {
        for (std::size_t i = 0; i < g_addresses.size(); ++i) {
            const std::string text = printed(g_addresses[i]);
            lines.say(5, "phostname:%s--%zu:%s", placed, i, text.c_str());
            const std::size_t at = std::min(1 + ZXNET_DOMAIN_SLOT_SIZE * i, record.size());
            const std::string slot = text + '\0';
            record.replace(at, slot.size(), slot, 0, record.size() - at);
            record[0] = static_cast<char>(i + 1);
            if (i < ZXNET_DOMAIN_FLAGS) {
                record[offsetof(domainaddr_ctt, family) + i] =
                    g_addresses[i].sin6_family == AF_INET6 ? 1 : 0;
            }
        }
    }
    std::uint8_t* const out = records.fill(sizeof(domainaddr_ctt), 'x');
    void* const found = out;
    require(zxnet_api_parseDomainName(placed, "http", static_cast<domainaddr_ctt*>(found)) ==
                (host.empty() || g_answer != 0 ? -1
                 : g_addresses.empty()         ? -2
                                               : 0),
            "the answer to a name");
    require(std::memcmp(out, record.data(), record.size()) == 0, "the addresses of a name");
    require(zx::fuzz::take_said() == lines.said, "the lines of a name");
}

}  // namespace

// This takes the place of the C library's function.
extern "C" [[gnu::visibility("default")]] int getaddrinfo(const char*, const char* service,
                                                          const addrinfo* hints, addrinfo** list) {
    require(std::strcmp(service, "http") == 0 && hints->ai_family == AF_UNSPEC &&
                hints->ai_socktype == SOCK_STREAM && hints->ai_flags == 0,
            "what is asked for");
    g_list.assign(g_addresses.size(), {});
    for (std::size_t i = 0; i < g_list.size(); ++i) {
        void* const address = &g_addresses[i];
        g_list[i].ai_family = g_addresses[i].sin6_family;
        g_list[i].ai_addr = static_cast<sockaddr*>(address);
        g_list[i].ai_next = i + 1 < g_list.size() ? &g_list[i + 1] : nullptr;
    }
    *list = g_list.empty() ? nullptr : g_list.data();
    return g_answer;
}
extern "C" [[gnu::visibility("default")]] void freeaddrinfo(addrinfo* list) {
    require(list == g_list.data(), "the list is given back");
}

// Runs what seeds would miss: every octet at every position, and texts that are no whole addresses.
void zx_fuzz_sweep() {
    static GuardedMemory out(kMaxText);
    zxlog_api_setLoglevel(5);
    std::vector<std::string> texts{".1.2.3.",      "111.222.133.0144",
                                   "255.255",      "1.2",
                                   "100.64.1",     "100.64..1",
                                   "::100.64.0.1", std::string(300, '.'),
                                   "ff02::1",      "fe80::1",
                                   "ff02::1::",    "name",
                                   "dhcp0",        "hcp",
                                   "1.2.3.4.",     "..1.2.3.4"};
    texts.insert(texts.end(), std::begin(kModes), std::end(kModes));
    for (std::uint32_t octet = 0; octet < 256; ++octet) {
        texts.push_back(dotted(octet * 0x01010101U));
    }
    for (const std::string& text : texts) {
        check_address(out, text, text.c_str());
        check_mac(out, text.c_str());
        for (const std::string mask :
             {"255.0.255.1", "248.252.254.255", "255.255", "1.128.192.3"}) {
            check_network(out, text, text.c_str(), mask, mask.c_str());
            check_network(out, mask, mask.c_str(), text, text.c_str());
        }
    }
    for (int fd = -1; fd < 5; ++fd) {
        require(zxnet_api_isVaildFd(fd) == (fd > 2 ? 1 : 0), "a descriptor");
    }
    sockaddr_in6 longest{};
    longest.sin6_family = AF_INET6;
    inet_pton(AF_INET6, "::ffff:192.0.2.1", &longest.sin6_addr);
    check_socket(out, longest);
    std::memset(&longest.sin6_addr, 0xFE, sizeof longest.sin6_addr);
    for (const std::size_t count : {0U, 1U, 128U, 129U, 200U, 255U}) {
        g_addresses.assign(count, longest);
        for (const int answer : {0, EAI_NONAME}) {
            g_answer = answer;
            check_host("host", "host");
        }
    }
    check_host("", "");
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory texts(kMaxText);
    static GuardedMemory masks(kMaxText);
    static GuardedMemory out(kMaxText);

    // The input: the log level, and two texts with a NUL between them.
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

    // The two texts are also read as addresses; their first byte is the number of these.
    Input sockets(both);
    g_addresses.resize(sockets.take<std::uint8_t>());
    g_answer = g_addresses.size() % 16 == 15 ? EAI_NONAME : 0;
    for (sockaddr_in6& socket : g_addresses) {
        socket = sockets.empty() ? g_addresses[0] : sockets.take<sockaddr_in6>();
        socket.sin6_family = socket.sin6_family % 4 == 0 ? AF_INET : AF_INET6;
        check_socket(out, socket);
    }
    check_host(text, placed);
    return 0;
}
