// Parsing dates and times, whose fields are at fixed positions.
#include "zxtime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/log.hpp"

namespace {

constexpr char kTag[] = "TIME";

// The positions of the fields in a layout. A year has four characters, the other fields have two.
struct DateAt {
    std::size_t year, month, day;
};
struct TimeAt {
    std::size_t hour, min, sec;
};

// The end of the longest layout. Nothing after it is read.
constexpr std::size_t kLongest = 30;

// A text with a known end, so that nothing after the end of a short text is read.
class Source {
public:
    explicit Source(const char* text) : text_(text), size_(strnlen(text, kLongest)) {}

    void read(const DateAt& at, rstime& t) const {
        t.year = number(at.year, 4);
        t.month = number(at.month, 2);
        t.day = number(at.day, 2);
    }
    void read(const TimeAt& at, rstime& t) const {
        t.hour = number(at.hour, 2);
        t.min = number(at.min, 2);
        t.sec = number(at.sec, 2);
    }

private:
    [[nodiscard]] int32_t number(std::size_t at, std::size_t width) const {
        int32_t value = 0;
        for (std::size_t i = at; i < at + width; ++i) {
            const char c = i < size_ ? text_[i] : '\0';
            if (c < '0' || c > '9') {
                return odd_number(at, width);
            }
            value = 10 * value + (c - '0');
        }
        return value;
    }

    // Reads a field that is not all digits: it may have a sign or blanks, or end early.
    [[nodiscard]] int32_t odd_number(std::size_t at, std::size_t width) const {
        char digits[8] = {};
        for (std::size_t i = 0; i < width && at + i < size_; ++i) {
            digits[i] = text_[at + i];
        }
        return static_cast<int32_t>(std::strtol(digits, nullptr, 10));
    }

    const char* text_;
    std::size_t size_;
};

}  // namespace

extern "C" void zxtime_innerapi_parseDate(const char* s, rstime* t) {
    if (s == nullptr || t == nullptr) {
        return;
    }
    Source(s).read(DateAt{0, 5, 8}, *t);
}

extern "C" void zxtime_innerapi_parseTime(const char* s, rstime* t) {
    if (s == nullptr || t == nullptr) {
        return;
    }
    Source(s).read(TimeAt{0, 3, 6}, *t);
}

extern "C" void zxtime_innerapi_parseDateTime(const char* s, rstime* t) {
    if (s == nullptr || t == nullptr) {
        return;
    }
    const Source text(s);
    text.read(DateAt{0, 4, 6}, *t);
    text.read(TimeAt{8, 10, 12}, *t);
    ZX_LOG(debug, "%04d-%02d-%02d %02d:%02d:%02d", t->year, t->month, t->day, t->hour, t->min,
           t->sec);
}

extern "C" void zxtime_api_parsetimestr1(const char* s, rstime* begin, rstime* end, char* out) {
    if (s == nullptr || begin == nullptr || end == nullptr) {
        return;
    }
    const Source text(s);
    text.read(DateAt{1, 5, 7}, *begin);
    text.read(TimeAt{9, 11, 13}, *begin);
    text.read(DateAt{16, 20, 22}, *end);
    text.read(TimeAt{24, 26, 28}, *end);
    if (out != nullptr) {
        std::snprintf(out, ZXTIME_RANGE_SIZE, "%04d%02d%02d%02d%02d%02d-%04d%02d%02d%02d%02d%02d",
                      begin->year, begin->month, begin->day, begin->hour, begin->min, begin->sec,
                      end->year, end->month, end->day, end->hour, end->min, end->sec);
    }
    ZX_LOG(debug,
           "\n\t\t\t\t\t%04d-%02d-%02d %02d:%02d:%02d   \n\t\t\t\t\t%04d-%02d-%02d %02d:%02d:%02d",
           begin->year, begin->month, begin->day, begin->hour, begin->min, begin->sec, end->year,
           end->month, end->day, end->hour, end->min, end->sec);
}

extern "C" void zxtime_api_parsetimestr2(const char* s, rstime* t) {
    if (s == nullptr || t == nullptr) {
        return;
    }
    const Source text(s);
    text.read(DateAt{0, 5, 8}, *t);
    text.read(TimeAt{11, 14, 17}, *t);
}

extern "C" void zxtime_api_parsetimestr3(const char* s, rstime* t) {
    if (s == nullptr || t == nullptr) {
        return;
    }
    const Source text(s);
    text.read(DateAt{0, 4, 6}, *t);
    text.read(TimeAt{9, 12, 15}, *t);
}
