// Local time without the C library's time-zone lock.
#pragma once

#include <cstdint>

namespace zxlog {

struct CivilTime {
    int year, month, day, hour, minute, second;
};

// Local time of an instant. Signal-safe.
CivilTime civil_time(std::int64_t epoch_sec);

}  // namespace zxlog
