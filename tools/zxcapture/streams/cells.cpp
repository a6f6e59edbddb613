#include "streams/cells.hpp"

#include <cstdio>
#include <ctime>

#include "streams/flow.hpp"
#include "terminal/amount.hpp"

namespace capture {

Cell text(std::string value) {
    return {std::move(value), 0};
}

Cell count(std::uint64_t value) {
    const auto number = static_cast<double>(value);
    return {terminal::amount_text("count", number), number};
}

Cell count_if(bool has_it, std::uint64_t value) {
    return has_it ? count(value) : Cell{"-", -1};
}

Cell duration_if(bool has_it, double value_us) {
    return has_it ? Cell{terminal::amount_text("_us", value_us), value_us} : Cell{"-", -1};
}

Cell megabits(double bits_per_s) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.3f", bits_per_s / 1e6);
    return {digits, bits_per_s};
}

Cell time_of_day(std::int64_t time_us) {
    const std::time_t seconds = time_us / 1000000;
    tm parts{};
    char digits[16] = "";
    if (localtime_r(&seconds, &parts) != nullptr) {
        std::strftime(digits, sizeof digits, "%T", &parts);
    }
    return {digits, static_cast<double>(time_us)};
}

std::string end_of(const Address& address, std::uint16_t port) {
    const std::string name = text_of(address);
    return (address.is_ipv6 ? "[" + name + "]" : name) + ":" + std::to_string(port);
}

std::string amount(std::uint64_t number, const char* what) {
    return terminal::amount_text("count", static_cast<double>(number)) + what;
}

}  // namespace capture
