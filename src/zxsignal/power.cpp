// Restarting the machine and switching it off.
#include <sys/reboot.h>
#include <unistd.h>

#include "internal/safe_name.hpp"
#include "zxsignal.h"

extern "C" int32_t zx_api_reboot(void) {
    sync();
    return reboot(RB_AUTOBOOT);
}

extern "C" int32_t zx_api_forceReboot(void) {
    sync();
    return zx::run("reboot -f");
}

extern "C" int32_t zx_api_poweroff(void) {
    sync();
    return reboot(RB_POWER_OFF);
}
