// The IPv4 configuration of network interfaces.
#include <arpa/inet.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>

#include "internal/dotted.hpp"
#include "internal/fixed_text.hpp"
#include "internal/guard.hpp"
#include "internal/safe_name.hpp"
#include "zxmd.h"
#include "zxnet.h"
#include "zxnet/messages.hpp"

static_assert(offsetof(netcfg_info, ipaddr) == 82 && offsetof(netcfg_info, netmask) == 98);
static_assert(sizeof(netcfg_info) == 114);
static_assert(sizeof(ifreq) == 40 && ZXNET_IFNAME_SIZE == IFNAMSIZ);

namespace {

constexpr std::uint32_t kMaxText = 64;  // bytes to read: more than any MAC address or MTU has
constexpr std::uint32_t kMinMacSize = 18;
constexpr std::uint32_t kMinMtuSize = 16;

constexpr std::array<const char*, ZXNET_IPMODE_MAX> kIpModes{"unkonw", "static", "dhcp",
                                                             "bond-slaver", "bond-master"};

// A socket for questions about interfaces. When none can be opened, logs that for the caller.
zx::UniqueFd open_socket(zx::Caller caller = {}) {
    zx::UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        ZX_LOG_AT(caller, error, "Create socket falied");
    }
    return fd;
}

// A name that is too long stays empty: the kernel would cut it and find another interface.
ifreq request_for(const char* name) {
    ifreq request{};
    const std::size_t length = strnlen(name, sizeof request.ifr_name);
    if (length < sizeof request.ifr_name) {
        std::memcpy(request.ifr_name, name, length);
    }
    return request;
}

using Path = std::array<char, sizeof "/sys/class/net//address" + ZXNET_IFNAME_SIZE>;

// The path of an interface's file. Logs for the caller when the name would lead elsewhere.
std::optional<Path> path_of(const char* name, const char* file, zx::Caller caller = {}) {
    if (!zx::is_interface(name)) {
        ZX_LOG_AT(caller, error, "Name(%s) is not fit for a path", name);
        return std::nullopt;
    }
    Path path;
    std::snprintf(path.data(), path.size(), "/sys/class/net/%s/%s", name, file);
    return path;
}

// The address in a request, as a question or as its answer.
in_addr& address_of(ifreq& request) {
    return reinterpret_cast<sockaddr_in&>(request.ifr_addr).sin_addr;
}

// Clears only the first bytes, so the end of a longer text remains after the new NUL.
void put_text(char* out, in_addr address) {
    std::memset(out, 0, zx::kClearedSize);
    std::strcpy(out, zx::AddressText(address.s_addr).text);
}

// Asks for an address and writes its text into the field, or zeros when there is none.
void ask(int fd, unsigned long what, ifreq& request, char (&field)[INET_ADDRSTRLEN]) {
    std::memset(field, 0, sizeof field);
    if (ioctl(fd, what, &request) == 0) {
        std::memcpy(field, zx::AddressText(address_of(request).s_addr).text, sizeof field);
    }
}

bool set(int fd, unsigned long what, const char* name, ifreq& request, zx::Caller caller = {}) {
    if (ioctl(fd, what, &request) != 0) {
        ZX_LOG_AT(caller, error, "%s  failed", name);
        return false;
    }
    return true;
}

}  // namespace

extern "C" int32_t zxnet_api_getIfaceInfo(netcfg_info* pnetcfg_info) {
    if (!ZX_ARE_GIVEN({pnetcfg_info, "pnetcfg_info"})) {
        return -1;
    }
    const zx::UniqueFd fd = open_socket();
    if (fd.get() < 0) {
        return -1;
    }
    ifreq request = request_for(pnetcfg_info->ifname);
    ask(fd.get(), SIOCGIFADDR, request, pnetcfg_info->ipaddr);
    ask(fd.get(), SIOCGIFNETMASK, request, pnetcfg_info->netmask);
    return 0;
}

extern "C" int32_t zxnet_api_setIfaceInfo(const netcfg_info* pnetcfg_info) {
    if (!ZX_ARE_GIVEN({pnetcfg_info, "pnetcfg_info"})) {
        return -1;
    }
    char ipaddr[sizeof pnetcfg_info->ipaddr + 1]{};
    char netmask[sizeof pnetcfg_info->netmask + 1]{};
    std::memcpy(ipaddr, pnetcfg_info->ipaddr, sizeof pnetcfg_info->ipaddr);
    std::memcpy(netmask, pnetcfg_info->netmask, sizeof pnetcfg_info->netmask);
    const zx::UniqueFd fd = open_socket();
    if (fd.get() < 0) {
        return -1;
    }
    ifreq request = request_for(pnetcfg_info->ifname);
    request.ifr_addr.sa_family = AF_INET;
    address_of(request).s_addr = inet_addr(ipaddr);
    if (address_of(request).s_addr == INADDR_NONE) {
        ZX_LOG(error, "SIOCSIFADDR  failed");  // the kernel would take 255.255.255.255
        return -1;
    }
    if (!set(fd.get(), SIOCSIFADDR, "SIOCSIFADDR", request)) {
        return -1;
    }
    // This replaces all flags. AF_INET is in the place of the flags, and as a flag it is
    // IFF_BROADCAST.
    static_assert(AF_INET == IFF_BROADCAST);
    request.ifr_flags = static_cast<short>(IFF_BROADCAST | IFF_UP | IFF_RUNNING);
    if (!set(fd.get(), SIOCSIFFLAGS, "SIOCSIFFLAGS", request)) {
        return -1;
    }
    request.ifr_addr = {};
    request.ifr_addr.sa_family = AF_INET;
    if (inet_pton(AF_INET, netmask, &address_of(request)) != 1) {
        ZX_LOG(error, "SIOCSIFNETMASK  failed");  // the kernel would take no mask for 0.0.0.0
        return -1;
    }
    return set(fd.get(), SIOCSIFNETMASK, "SIOCSIFNETMASK", request) ? 0 : -1;
}

extern "C" int32_t zxnet_api_getIfaceIp(const char* ifname, char* out) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"}, {out, "pipaddr"})) {
        return -1;
    }
    const zx::UniqueFd fd = open_socket();
    if (fd.get() < 0) {
        return -1;
    }
    ifreq request = request_for(ifname);
    const bool is_known = ioctl(fd.get(), SIOCGIFADDR, &request) == 0;
    put_text(out, is_known ? address_of(request) : in_addr{});
    return is_known ? 0 : -1;
}

extern "C" int32_t zxnet_api_getIfaceIpMask(const char* ifname, char* ipaddr, char* netmask) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"}, {ipaddr, "pipaddr"}, {netmask, "pnetmask"})) {
        return -1;
    }
    const zx::UniqueFd fd = open_socket();
    if (fd.get() < 0) {
        return -1;
    }
    ifreq request = request_for(ifname);
    if (ioctl(fd.get(), SIOCGIFADDR, &request) != 0) {
        return -2;
    }
    const in_addr address = address_of(request);
    put_text(ipaddr, address);
    // Deliberate: the netmask is not written. When it cannot be read, the address is written
    // instead.
    if (ioctl(fd.get(), SIOCGIFNETMASK, &request) != 0) {
        put_text(netmask, address);
    }
    return 0;
}

extern "C" int32_t zxnet_api_getIfaceMac_string(const char* ifname, char* out, int32_t size) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"}, {out, "pmacstr"})) {
        return -1;
    }
    if (static_cast<std::uint32_t>(size) < kMinMacSize) {
        ZX_LOG(error, "Mac bufsize(%d) must be lagre than 18", size);
        return -2;
    }
    const std::optional<Path> path = path_of(ifname, "address");
    if (!path) {
        return -1;
    }
    zxmd_api_read(path->data(), out, std::min(static_cast<std::uint32_t>(size), kMaxText));
    return 0;
}

extern "C" int32_t zxnet_api_getIfaceMac_byte(const char* ifname, uint8_t* out6) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"}, {out6, "out"})) {
        return -1;
    }
    const zx::UniqueFd fd = open_socket();
    if (fd.get() < 0) {
        return -1;
    }
    ifreq request{};
    ZX_FILL_FIELD(request.ifr_name, ifname);
    if (ioctl(fd.get(), SIOCGIFHWADDR, &request) != 0) {
        ZX_LOG(error, "ioctl SIOCGIFHWADDR failed");
        return -1;
    }
    std::memcpy(out6, request.ifr_hwaddr.sa_data, ZXNET_MAC_SIZE);
    return 0;
}

extern "C" int32_t zxnet_api_getIfaceMtu(const char* ifname, char* out, int32_t size) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"}, {out, "out"})) {
        return -1;
    }
    if (static_cast<std::uint32_t>(size) < kMinMtuSize) {
        ZX_LOG(error, "MTU bufsize(%d) must be lagre than 16", size);
        return -2;
    }
    const std::optional<Path> path = path_of(ifname, "mtu");
    if (!path) {
        return -1;
    }
    // The number is shorter than any size that gets here, so zxmd_api_read() adds a NUL.
    if (zxmd_api_read(path->data(), out, std::min(static_cast<std::uint32_t>(size), kMaxText)) <
        0) {
        ZX_LOG(error, "Write mtu val failed");
        return -1;
    }
    return 0;
}

extern "C" int32_t zxnet_api_setIfaceMtu(const char* ifname, uint32_t mtu) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"})) {
        return -1;
    }
    const std::optional<Path> path = path_of(ifname, "mtu");
    if (!path) {
        return -1;
    }
    char text[sizeof "-2147483648"];
    const int length = std::snprintf(text, sizeof text, "%d", static_cast<int>(mtu));
    const std::int32_t written =
        zxmd_api_write(path->data(), text, static_cast<std::uint32_t>(length), "w");
    if (written < 0) {
        ZX_LOG(error, "Write mtu val failed");
        return -1;
    }
    return written;
}

extern "C" int32_t zxnet_api_setIfaceFlags(int fd, const char* ifname, uint16_t flags) {
    if (!ZX_ARE_GIVEN({ifname, "pifname"})) {
        return -1;
    }
    ifreq request = request_for(ifname);
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0) {
        ZX_LOG(error, "ioctl(SIOCGIFFLAGS) failed");
        return -1;
    }
    request.ifr_flags = static_cast<short>(request.ifr_flags | flags);
    if (ioctl(fd, SIOCSIFFLAGS, &request) != 0) {
        ZX_LOG(error, "ioctl(SIOCSIFFLAGS) failed");
        return -1;
    }
    return 0;
}

extern "C" ipmode_e zxnet_api_getIpMode(const char* text) {
    if (!ZX_ARE_GIVEN({text, "text"})) {
        return ZXNET_IPMODE_UNKNOWN;
    }
    for (std::size_t i = 0; i < kIpModes.size(); ++i) {
        if (std::strcmp(text, kIpModes[i]) == 0) {
            return static_cast<ipmode_e>(i);
        }
    }
    return ZXNET_IPMODE_UNKNOWN;
}
