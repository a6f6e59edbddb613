// The cells of the tables.
#pragma once

#include <cstdint>
#include <string>

#include "packet/packet.hpp"
#include "streams/sheet.hpp"

namespace capture {

[[nodiscard]] Cell text(std::string value);
[[nodiscard]] Cell count(std::uint64_t value);

// Of what a row may not have.
[[nodiscard]] Cell count_if(bool has_it, std::uint64_t value);
[[nodiscard]] Cell duration_if(bool has_it, double value_us);

[[nodiscard]] Cell megabits(double bits_per_s);
[[nodiscard]] Cell time_of_day(std::int64_t time_us);

// An address with its port.
[[nodiscard]] std::string end_of(const Address& address, std::uint16_t port);

// A number and what it counts.
[[nodiscard]] std::string amount(std::uint64_t number, const char* what);

}  // namespace capture
