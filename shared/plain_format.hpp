// vsnprintf() for nearly all lines: "%s", "%.128s", "%.*s", "%c", "%%" and integers ("%d", "%i",
// "%u", "%x" of any length, "%02d" and "%04d"), without other flags and widths. It is three times
// as fast, and does not call the formatter of the C library in signal handlers.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "shared/hex.hpp"

namespace zx {

class PlainFormat {
public:
    PlainFormat(char* out, std::size_t size) : begin_(out), at_(out), end_(out + size - 1) {}

    // Returns the length of the text, or -1 when the format has anything else or the text does not
    // fit.
    int print(const char* fmt, std::va_list args) {
        for (; *fmt != '\0'; ++fmt) {
            if (*fmt != '%') {
                if (at_ == end_) {
                    return -1;
                }
                *at_++ = *fmt;
                continue;
            }
            Conversion conversion;
            fmt = conversion.parse(fmt + 1);
            if (conversion.precision == kFromArgument) {
                conversion.precision = va_arg(args, int);
            }
            bool printed = false;
            if (conversion.letter == 's') {
                printed = put_text(va_arg(args, const char*), conversion.precision);
            } else if (conversion.precision != kNone) {
                return -1;
            } else if (conversion.letter == 'd' || conversion.letter == 'i') {
                const std::int64_t value =
                    conversion.is_long ? va_arg(args, std::int64_t) : va_arg(args, int);
                const auto bits = static_cast<std::uint64_t>(value);
                if (value < 0 && conversion.digits != 1) {
                    return -1;
                }
                printed = value < 0 ? put_char('-') && put_number<10>(0 - bits)
                                    : put_number<10>(bits, conversion.digits);
            } else if (conversion.letter == 'u' || conversion.letter == 'x') {
                const std::uint64_t value =
                    conversion.is_long ? va_arg(args, std::uint64_t) : va_arg(args, unsigned);
                printed = conversion.letter == 'u' ? put_number<10>(value) : put_number<16>(value);
            } else if (conversion.letter == 'c') {
                printed = put_char(static_cast<char>(va_arg(args, int)));
            } else if (conversion.letter == '%') {
                printed = put_char('%');
            }
            if (!printed) {
                return -1;
            }
        }
        *at_ = '\0';
        return static_cast<int>(at_ - begin_);
    }

private:
    static constexpr int kNone = -1;
    static constexpr int kFromArgument = -2;
    static_assert(sizeof(long) == 8 && sizeof(long long) == 8 && sizeof(std::size_t) == 8);

    struct Conversion {
        int precision = kNone;
        std::size_t digits = 1;  // the fewest digits of a number
        bool is_long = false;
        char letter = '\0';

        // Returns the position of the letter.
        const char* parse(const char* at) {
            if (*at == '0' && at[1] >= '1' && at[1] <= '9' && at[2] == 'd') {
                digits = static_cast<std::size_t>(at[1] - '0');
                at += 2;
            } else if (*at == '.') {
                ++at;
                precision = *at == '*' ? kFromArgument : 0;
                at += *at == '*' ? 1 : 0;
                for (; precision >= 0 && precision < 10000 && *at >= '0' && *at <= '9'; ++at) {
                    precision = precision * 10 + (*at - '0');
                }
            }
            for (; *at == 'l' || *at == 'z'; ++at) {
                is_long = true;
            }
            // "%ls" and "%lc" are not supported. Neither is a format that ends here.
            letter = is_long && (*at == 's' || *at == 'c') ? '\0' : *at;
            return at;
        }
    };

    bool put_char(char c) {
        if (at_ == end_) {
            return false;
        }
        *at_++ = c;
        return true;
    }

    bool put_text(const char* text, int precision) {
        if (text == nullptr) {
            return false;
        }
        const std::size_t size =
            precision < 0 ? std::strlen(text) : strnlen(text, static_cast<std::size_t>(precision));
        if (size > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        std::memcpy(at_, text, size);
        at_ += size;
        return true;
    }

    template <unsigned kBase>
    bool put_number(std::uint64_t value, std::size_t least_digits = 1) {
        char digits[20];
        std::size_t first = sizeof digits;
        do {
            digits[--first] = kLowerDigits[value % kBase];
            value /= kBase;
        } while (value != 0 || sizeof digits - first < least_digits);
        if (sizeof digits - first > static_cast<std::size_t>(end_ - at_)) {
            return false;
        }
        for (; first < sizeof digits; ++first) {
            *at_++ = digits[first];
        }
        return true;
    }

    char* begin_;
    char* at_;
    char* end_;
};

}  // namespace zx
