// Reading and setting the clocks.
#include "zxtime.h"

#include <sys/time.h>

#include <ctime>

#include "internal/args.hpp"
#include "internal/log.hpp"
#include "internal/poll.hpp"
#include "internal/safe_name.hpp"
#include "zxlog.h"
#include "zxtime/calendar.hpp"

namespace {

constexpr char kTag[] = "TIME";

}  // namespace

extern "C" uint64_t zxtime_api_us(void) {
    return zxlog_api_us();
}

extern "C" uint64_t zxtime_api_ms(void) {
    return zxtime_api_us() / 1000;
}

extern "C" uint64_t zxtime_api_sec(void) {
    return static_cast<uint64_t>(std::time(nullptr));
}

extern "C" uint64_t zxtime_api_minute(void) {
    return zxtime_api_sec() / 60;
}

extern "C" uint64_t zxtime_api_hour(void) {
    return zxtime_api_sec() / 3600;
}

extern "C" uint64_t zxtime_api_mouth(void) {
    return static_cast<uint64_t>(zx::calendar::now().month);
}

extern "C" uint64_t zxtime_api_upTimeUs(void) {
    return static_cast<uint64_t>(zx::steady_us());
}

extern "C" uint64_t zxtime_api_upTimeMs(void) {
    return zxtime_api_upTimeUs() / 1000;
}

extern "C" uint64_t zxtime_api_upTimeSec(void) {
    return zxtime_api_upTimeMs() / 1000;
}

extern "C" int32_t zxtime_api_setDTime(const char* strDateTime) {
    if (!ZX_ARE_GIVEN({strDateTime, "strDateTime"})) {
        return 0;
    }
    rstime wanted{};
    zxtime_innerapi_parseDateTime(strDateTime, &wanted);
    const timeval clock{.tv_sec = zx::calendar::seconds_since_epoch(wanted), .tv_usec = 0};
    if (settimeofday(&clock, nullptr) != 0) {
        ZX_LOG(error, "set system datatime to  %s   error", strDateTime);
        return 0;
    }
    // Not every machine has a hardware clock, so this result does not count.
    zx::run_unasked("hwclock --systohc");
    return 1;
}
