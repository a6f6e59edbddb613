// Local time without the C library's time-zone lock.
#pragma once

#include <cstdint>

namespace zxlog {

struct CivilTime {
    int year, month, day, hour, minute, second;
};

// Reads the zone's changes of offset for the coming decades from the C library, once; later calls
// do nothing. Takes the C library's time-zone lock: never on the way of a line.
void learn_zone();

// The same for the way of a line: only when this cannot be a signal handler, and only until the
// zone is known.
void learn_zone_unless_in_handler();

// Local time of an instant, in UTC as long as the zone is not known. Signal-safe.
CivilTime civil_time(std::int64_t epoch_sec);

}  // namespace zxlog
