#include <cstddef>
#include <cstdint>

#include "shared/hex.hpp"
#include "zxlog.h"

namespace {

constexpr std::uint32_t kBytesPerRow = 16;
constexpr std::size_t kRowSize = 3 * kBytesPerRow + 1 + kBytesPerRow + 1;

// Writes "00 01 02 …  ..text.." for up to 16 bytes.
void format_row(const std::uint8_t* bytes, std::uint32_t count, char (&row)[kRowSize]) {
    char* at = row;
    for (std::uint32_t i = 0; i < kBytesPerRow; ++i) {
        if (i < count) {
            at = zx::put_hex(at, bytes[i]);
        } else {
            *at++ = ' ';
            *at++ = ' ';
        }
        *at++ = ' ';
    }
    *at++ = ' ';
    for (std::uint32_t i = 0; i < count; ++i) {
        const bool printable = bytes[i] >= 0x20 && bytes[i] < 0x7f;
        *at++ = printable ? static_cast<char>(bytes[i]) : '.';
    }
    *at = '\0';
}

}  // namespace

extern "C" void zxlog_innerapi_bufHex(const char* label, const void* buf, std::uint32_t len,
                                      const char* func, std::int32_t line) {
    if (zxlog_api_getLoglevel() == 0) {
        return;
    }
    zxlog_innerapi_file("%s[HEX][%s %d]%s: %u bytes\r\n", zxlog_innerapi_logTime(),
                        func != nullptr ? func : "", line, label != nullptr ? label : "", len);
    const auto* const bytes = static_cast<const std::uint8_t*>(buf);
    for (std::uint32_t at = 0; bytes != nullptr && at < len; at += kBytesPerRow) {
        char row[kRowSize];
        const std::uint32_t left = len - at;
        format_row(bytes + at, left < kBytesPerRow ? left : kBytesPerRow, row);
        zxlog_innerapi_file("%s[HEX]%08x: %s\r\n", zxlog_innerapi_logTime(), at, row);
        if (left <= kBytesPerRow) {
            break;
        }
    }
}
