// Upper and lower case.
#include "zxstr.h"

#include <cstring>

namespace {

// Adds `distance` to each letter from `first` on. Deliberate: the last two letters of the alphabet
// stay as they are.
uint32_t move_letters(const char* src, char* dst, char first, int distance) {
    if (src == nullptr || dst == nullptr) {
        return 0;
    }
    const std::size_t length = std::strlen(src);
    const int last = first + ('x' - 'a');
    for (std::size_t i = 0; i < length; ++i) {
        const char c = src[i];
        dst[i] = first <= c && c <= last ? static_cast<char>(c + distance) : c;
    }
    return static_cast<uint32_t>(length);
}

}  // namespace

extern "C" uint32_t zxstr_api_outULetters(const char* src, char* dst) {
    return move_letters(src, dst, 'a', 'A' - 'a');
}

extern "C" uint32_t zxstr_api_outLLetters(const char* src, char* dst) {
    return move_letters(src, dst, 'A', 'a' - 'A');
}
