// What the sources about dates and times share.
#pragma once

#include <cstdint>
#include <ctime>

#include "zxtime.h"

namespace zx::calendar {

// The local time.
[[nodiscard]] rstime now();

[[nodiscard]] std::uint32_t seconds_of_day(const rstime& t);

// The time in seconds since the epoch. -1 for a record that mktime() cannot convert.
[[nodiscard]] std::time_t seconds_since_epoch(const rstime& t);

}  // namespace zx::calendar
