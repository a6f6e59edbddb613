// The clock for all times in the log.
#pragma once

#include <time.h>

namespace zxlog {

inline timespec wall_clock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

}  // namespace zxlog
