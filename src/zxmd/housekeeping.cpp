// Freeing the disk and the memory of a server.
#include <cstdio>
#include <initializer_list>

#include "internal/safe_name.hpp"
#include "zxmd.h"
#include "zxmd/messages.hpp"
#include "zxtime.h"

namespace {

constexpr std::size_t kCommandSize = 64;
constexpr std::uint64_t kSaveIntervalUs = 60000000;

int32_t run_all(std::initializer_list<const char*> commands) {
    int status = 0;
    for (const char* const command : commands) {
        status = zx::run(command);
    }
    return status;
}

}  // namespace

extern "C" int32_t zxmd_api_clearCache(uint32_t level) {
    char command[kCommandSize];
    std::snprintf(command, sizeof command, "echo %d  >  /proc/sys/vm/drop_caches",
                  static_cast<int>(level));
    return zx::run(command);
}

extern "C" int32_t zxmd_api_clearSysLog(void) {
    return run_all({"rm -fr  /var/log/syslog.*     ", "rm -fr  /var/log/*.log.*",
                    "rm -fr  /var/log/*.log", "rm -fr  /var/log/*.err.*"});
}

extern "C" int32_t zxmd_api_clearAppLog(void) {
    return run_all({"rm -fr  /var/log/zxcore/*", "rm -fr  /usr/local/zxsrs/objs//*.log",
                    "rm -fr  /usr/local/nginx/*.log", "rm -fr  /usr/local/zxtomcat/logs//*.log"});
}

extern "C" int32_t zxmd_api_cleanKernelUpgradeFile(void) {
    return zx::run("apt -y autoremove");
}

extern "C" int32_t zxmd_api_timeToSave(uint64_t* last) {
    if (!ZX_ARE_GIVEN({last, "last"})) {
        return 0;
    }
    const std::uint64_t now = zxtime_api_us();
    const std::uint64_t elapsed = now < *last ? kSaveIntervalUs : now - *last;
    if (elapsed < kSaveIntervalUs) {
        return 0;
    }
    *last = now;
    return 1;
}
