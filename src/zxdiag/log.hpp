// The log of the running program: its last lines in memory, its level and its tags.
#pragma once

#include <cstdint>

#include "zxdiag/line_ring.hpp"

namespace zx::diag {

// From now on lines are kept in memory, also those that the level suppresses.
void start_keeping_lines();

// Also sets the level and the tags back.
void stop_keeping_lines();

// In the child of a fork, which has no lines and the level of the program.
void forget_lines();

// Writes the lines in memory to the log, from one that tells `why` to one that tells how many there
// were. Returns this number; 0 also when the level is 0. `room` is for a line. Signal-safe.
std::uint64_t write_kept_lines(const char* why, LineRing::Line& room);

// The level or the tags that were changed for a while. Only the thread that serves calls these.
[[nodiscard]] int ms_until_log_is_restored();  // -1: nothing was changed
void restore_log_when_due();

}  // namespace zx::diag
