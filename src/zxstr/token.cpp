// Taking lines and words from the front of a text.
#include "zxstr.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char kLineEnd[] = "\n";
constexpr char kSpaces[] = " \f\n\r\t\v";

// Copies a piece with a NUL, cut to `size`.
void store(char* buf, int32_t size, const char* piece, std::size_t length) {
    if (buf == nullptr || size <= 0) {
        return;
    }
    const std::size_t kept = std::min(length, static_cast<std::size_t>(size) - 1);
    std::memcpy(buf, piece, kept);
    buf[kept] = '\0';
}

char** take(char* buf, int32_t size, char** cursor, const char* skipped, const char* stops) {
    if (cursor == nullptr || *cursor == nullptr) {
        store(buf, size, "", 0);
        return cursor;
    }
    char* const piece = *cursor + std::strspn(*cursor, skipped);
    const std::size_t length = std::strcspn(piece, stops);
    store(buf, size, piece, length);
    *cursor = piece + length;
    return cursor;
}

}  // namespace

extern "C" char** zxstr_api_getLine(char* buf, int32_t size, char** cursor) {
    return take(buf, size, cursor, kLineEnd, kLineEnd);
}

extern "C" char** zxstr_api_getLine2(char* buf, int32_t size, char** cursor) {
    return take(buf, size, cursor, kLineEnd, "\r\n");
}

extern "C" char** zxstr_api_getLine3(char* buf, int32_t size, char** cursor) {
    const bool keeps_stop = size >= 2;
    take(buf, keeps_stop ? size - 1 : size, cursor, kLineEnd, kLineEnd);
    if (cursor == nullptr || *cursor == nullptr) {
        return cursor;
    }
    if (buf != nullptr && keeps_stop) {
        char* const end = buf + std::strlen(buf);
        end[0] = **cursor;
        end[1] = '\0';
    }
    ++*cursor;
    return cursor;
}

extern "C" char** zxstr_api_getWord(char* buf, int32_t size, char** cursor) {
    return take(buf, size, cursor, " \t\r\n", kSpaces);
}

extern "C" int32_t zxstr_api_isSpace(char c) {
    return c != '\0' && std::strchr(kSpaces, c) != nullptr ? 1 : 0;
}
