// Builds the text of a line. It only appends, without formats, because it does so for every frame.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "packet/packet.hpp"

namespace capture {

// What Text can append beside texts and numbers.
struct Hex {  // a number with at least this many digits
    std::uint64_t value;
    std::size_t digits;
};
struct Digits {  // a decimal number with at least this many digits
    std::uint64_t value;
    std::size_t digits;
};
struct Mac {
    const std::uint8_t* bytes;
};

class Text {
public:
    void clear() { text_.clear(); }
    [[nodiscard]] std::size_t size() const { return text_.size(); }
    [[nodiscard]] std::string_view view() const { return text_; }

    Text& operator<<(std::string_view text) {
        text_.append(text);
        return *this;
    }
    Text& operator<<(char character) {
        text_.push_back(character);
        return *this;
    }
    template <std::unsigned_integral Number>
    Text& operator<<(Number number) {
        return add_number(number, 10, 0);
    }
    Text& operator<<(Hex number) { return add_number(number.value, 16, number.digits); }
    Text& operator<<(Digits number) { return add_number(number.value, 10, number.digits); }
    Text& operator<<(Mac mac);
    Text& operator<<(const Address& address);

    // Puts blanks before or after what was appended since the text had `size`, up to `width`
    // characters.
    void align_right(std::size_t size, std::size_t width) {
        if (text_.size() < size + width) {
            text_.insert(size, size + width - text_.size(), ' ');
        }
    }
    void align_left(std::size_t size, std::size_t width) {
        if (text_.size() < size + width) {
            text_.resize(size + width, ' ');
        }
    }

private:
    Text& add_number(std::uint64_t number, int base, std::size_t digits) {
        char text[20];  // the largest number has 20 digits
        const char* const end = std::to_chars(text, text + sizeof text, number, base).ptr;
        const auto size = static_cast<std::size_t>(end - text);
        if (size < digits) {
            text_.append(digits - size, '0');
        }
        text_.append(text, size);
        return *this;
    }

    std::string text_;
};

}  // namespace capture
