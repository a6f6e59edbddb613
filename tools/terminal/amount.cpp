#include "terminal/amount.hpp"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "terminal/text.hpp"
#include "zxt.h"

namespace terminal {
namespace {

constexpr double kMostWhole = 9e15;  // every whole number up to here is exact

struct Unit {
    std::string_view suffix;
    std::string (*text)(double value);
};

[[gnu::format(printf, 1, 2)]] std::string print(const char* format, ...) {
    char text[64];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

std::string count_text(double value) {
    if (value != std::floor(value)) {
        return print("%.2f", value);
    }
    const std::string digits = print("%.0f", value);
    std::string text;
    for (std::size_t left = digits.size(); const char digit : digits) {
        text += digit;
        text += --left % 3 == 0 && left != 0 ? "," : "";
    }
    return text;
}

std::string microseconds_text(double value) {
    constexpr double kMilli = 1e3;
    constexpr double kSecond = 1e6;
    constexpr double kMinute = 60 * kSecond;
    constexpr double kHour = 60 * kMinute;
    constexpr double kDay = 24 * kHour;
    if (value < kMilli) {
        return print("%.0f us", std::floor(value));
    }
    if (value < kSecond) {
        return print("%.1f ms", std::floor(value / 100) / 10);
    }
    if (value < kMinute) {
        return print("%.1f s", std::floor(value / (kSecond / 10)) / 10);
    }
    if (value < kHour) {
        return print("%.0f min %.0f s", std::floor(value / kMinute),
                     std::floor(std::fmod(value, kMinute) / kSecond));
    }
    if (value < kDay) {
        return print("%.0f h %.0f min", std::floor(value / kHour),
                     std::floor(std::fmod(value, kHour) / kMinute));
    }
    return print("%.0f d %.0f h", std::floor(value / kDay),
                 std::floor(std::fmod(value, kDay) / kHour));
}

std::string seconds_text(double value) {
    return microseconds_text(value * 1e6);
}

std::string bytes_text(double value) {
    char text[ZXT_UNIT_SIZE];
    return zxt_innerapi_bit2str_64(text, static_cast<std::uint64_t>(value), 0);
}

std::string rate_text(double value) {
    return bytes_text(value) + "/s";
}

std::string percent_text(double value) {
    return print("%.1f %%", value);
}

// The longest suffix comes first.
constexpr Unit kUnits[] = {
    {"_bytes_per_s", rate_text}, {"_bytes", bytes_text}, {"_us", microseconds_text},
    {"_percent", percent_text},  {"_s", seconds_text},   {"", count_text},
};

// Numbers that only name something.
bool is_name(std::string_view key) {
    return key == "pid" || key == "line" || key == "level" || key.ends_with("tid");
}

// "bytes" alone is a size, too.
const Unit& unit_of(std::string_view key) {
    return *std::find_if(std::begin(kUnits), std::end(kUnits), [&](const Unit& unit) {
        return key.ends_with(unit.suffix) ||
               (unit.suffix.starts_with("_bytes") && key == unit.suffix.substr(1));
    });
}

}  // namespace

std::string amount_text(std::string_view key, double value) {
    const double size = std::fabs(value);
    if (!(size <= kMostWhole)) {
        return print("%g", value);
    }
    if (is_name(key)) {
        return print("%.0f", value);
    }
    std::string text = unit_of(key).text(size);
    return value < 0 ? text.insert(0, 1, '-') : text;
}

std::string title_of(std::string_view key) {
    const std::string_view suffix = unit_of(key).suffix;
    const bool is_plain = suffix.starts_with("_bytes") || !key.ends_with(suffix);
    std::string title = clean(is_plain ? key : key.substr(0, key.size() - suffix.size()));
    std::ranges::replace(title, '_', ' ');
    return title;
}

}  // namespace terminal
