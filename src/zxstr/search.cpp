// Finding one text inside another.
#include "zxstr.h"

#include <cstring>

#include "zxlog.h"

extern "C" int32_t zxstr_api_isCasestr(const char* haystack, const char* needle) {
    return zxlog_api_strCasestrNum(haystack, needle, 1, 1) != 0 ? 1 : 0;
}

extern "C" int32_t zxstr_api_isCasestr_IgnoreLetterCase(const char* haystack, const char* needle) {
    return zxlog_api_strCasestrNum(haystack, needle, 1, 0) != 0 ? 1 : 0;
}

extern "C" char* zxstr_api_replace(const char* src, const char* old, const char* with, char* dst) {
    if (src == nullptr || old == nullptr || with == nullptr || dst == nullptr) {
        return dst;
    }
    const std::size_t old_length = std::strlen(old);
    const std::size_t with_length = std::strlen(with);
    char* to = dst;
    // An empty text is found everywhere, so replacing it would never end.
    while (const char* const hit = old_length != 0 ? std::strstr(src, old) : nullptr) {
        const auto before = static_cast<std::size_t>(hit - src);
        std::memcpy(to, src, before);
        std::memcpy(to + before, with, with_length);
        to += before + with_length;
        src = hit + old_length;
    }
    std::memcpy(to, src, std::strlen(src) + 1);
    return dst;
}
