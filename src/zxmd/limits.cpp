// Limits of the process.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>

#include "internal/safe_name.hpp"
#include "zxmd.h"
#include "zxmd/messages.hpp"

static_assert(RLIMIT_NOFILE == 7);

namespace {

constexpr std::size_t kCommandSize = 256;

}  // namespace

extern "C" int32_t zxmd_api_setRlimit(uint32_t resource, const char* resource_name) {
    const char* const name = resource_name != nullptr ? resource_name : "";
    // A larger number is no value of this type. The kernel refuses RLIM_NLIMITS in its place.
    const auto which =
        static_cast<__rlimit_resource>(std::min(resource, std::uint32_t{RLIM_NLIMITS}));
    rlimit limit{};
    if (getrlimit(which, &limit) != 0) {
        ZX_LOG(error, "getrlimit %s error", name);
        return -1;
    }
    ZX_LOG(info, "set  %s from (%d) to max(%d)", name, static_cast<int>(limit.rlim_cur),
           static_cast<int>(limit.rlim_max));
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(which, &limit) != 0) {
        ZX_LOG(error, "setrlimit %s error", name);
        return -1;
    }
    if (which != RLIMIT_NOFILE) {
        return static_cast<int32_t>(resource);
    }
    char command[kCommandSize];
    std::snprintf(command, sizeof command, "echo %d >  /proc/sys/fs/inotify/max_user_watches",
                  static_cast<int>(limit.rlim_max));
    return zx::run(command);
}

extern "C" int32_t zxmd_api_setUlimit(void) {
    return zxmd_api_setRlimit(RLIMIT_NOFILE, "max_open_file");
}
