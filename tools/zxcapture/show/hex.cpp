#include "show/hex.hpp"

#include <algorithm>

namespace capture {
namespace {

constexpr std::size_t kLine = 16;  // bytes
constexpr std::size_t kDigitsWidth = kLine / 2 * 5;

}  // namespace

void add_hex(Text& text, std::span<const std::uint8_t> bytes) {
    for (std::size_t at = 0; at < bytes.size(); at += kLine) {
        const auto line = bytes.subspan(at, std::min(kLine, bytes.size() - at));
        text << "\t0x" << Hex{at, 4} << ": ";
        const std::size_t start = text.size();
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (i % 2 == 0) {
                text << ' ';
            }
            text << Hex{line[i], 2};
        }
        text.align_left(start, kDigitsWidth);
        text << "  ";
        for (const std::uint8_t byte : line) {
            text << (byte > ' ' && byte < 0x7F ? static_cast<char>(byte) : '.');
        }
        text << '\n';
    }
}

}  // namespace capture
