#include "zxsysctl.h"

#include <cstdio>
#include <cstdlib>

#include "internal/args.hpp"
#include "internal/log.hpp"
#include "internal/safe_name.hpp"
#include "zxmd.h"

namespace {

constexpr char kTag[] = "SYSCTL";
constexpr char kIgmpVersionPath[] = "/proc/sys/net/ipv4/conf/all/force_igmp_version";
constexpr std::size_t kFilterCommandSize = 256;
constexpr std::size_t kIgmpCommandSize = 1024;
constexpr std::uint32_t kDigits = 2;

}  // namespace

extern "C" int32_t zxsysctl_api_setEth_rpfilter(const char* name, uint8_t /*value*/) {
    if (!ZX_ARE_GIVEN({name, "name"})) {
        return -1;
    }
    char command[kFilterCommandSize];
    const int length = std::snprintf(command, sizeof command,
                                     "sysctl  -w   net.ipv4.conf.%s.rp_filter=0 > /dev/null", name);
    if (!zx::is_literal(name) || !zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Name(%s) is not fit for a command", name);
        return -1;
    }
    const int status = zx::run(command);
    ZX_LOG(info, "rp_filter cmd:%s", command);
    return status;
}

extern "C" int32_t zxsysctl_api_setGw_rpfilter(uint8_t value) {
    zxsysctl_api_setEth_rpfilter("all", value);
    return zxsysctl_api_setEth_rpfilter("default", value);
}

extern "C" int32_t zxsysctl_api_getIgmpVersion(void) {
    char digits[kDigits + 1]{};
    zxmd_api_read(kIgmpVersionPath, digits, kDigits);
    return static_cast<int32_t>(std::strtol(digits, nullptr, 10));
}

extern "C" int32_t zxsysctl_api_setIgmpVersion(uint8_t version) {
    ZX_LOG(debug, "config igmp version to version to %d", version);
    char command[kIgmpCommandSize];
    std::snprintf(command, sizeof command, "echo %d > %s", version, kIgmpVersionPath);
    return zx::run(command);
}
