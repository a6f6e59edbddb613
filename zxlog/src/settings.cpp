// The level, the flags and the tag filter, which decide whether a line is wanted.
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "zxlog.h"

namespace {

std::atomic<std::uint32_t> g_level{3};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

char other_case(char c) {
    return c >= 'A' && c <= 'Z'   ? lower(c)
           : c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A')
                                  : c;
}

bool begins_ignoring_case(const char* text, const char* part) {
    for (; *part != '\0'; ++text, ++part) {
        if (lower(*text) != lower(*part)) {
            return false;
        }
    }
    return true;
}

// strcasestr() for ASCII. That of the C library follows the locale, in which "FIFO" may not match
// "fifo".
const char* find_ignoring_case(const char* text, const char* part) {
    const char first[] = {part[0], other_case(part[0]), '\0'};
    for (; *(text += std::strcspn(text, first)) != '\0'; ++text) {
        if (begins_ignoring_case(text + 1, part + 1)) {
            return text;
        }
    }
    return nullptr;
}

// Not inlined: most calls do not get here.
[[gnu::noinline]] std::int32_t count_parts(const char* text, std::string_view part,
                                           std::int32_t max, bool match_case) {
    std::int32_t count = 0;
    while (max <= 0 || count < max) {
        text = match_case ? std::strstr(text, part.data()) : find_ignoring_case(text, part.data());
        if (text == nullptr) {
            break;
        }
        ++count;
        text += part.size();
    }
    return count;
}

}  // namespace

extern "C" {

std::int8_t flag_printLineFunc = 0;
std::int8_t flag_stdPrint = 0;
const char* strLoglevel_simple[6] = {"OFF", "ERROR", "WARN", "NOTICE", "INFO", "DEBUG"};
char strfilterTags[ZXLOG_FILTER_SIZE] = "";

void zxlog_api_setLoglevel(std::uint32_t level) {
    g_level.store(level, std::memory_order_relaxed);
}

std::uint32_t zxlog_api_getLoglevel(void) {
    return g_level.load(std::memory_order_relaxed);
}

void zxlog_api_setFilterTags(const char* tags) {
    std::snprintf(strfilterTags, sizeof strfilterTags, "%s", tags != nullptr ? tags : "");
}

void zxlog_api_setPrintLineFunc(std::int8_t on) {
    __atomic_store_n(&flag_printLineFunc, on, __ATOMIC_RELAXED);
}

void zxlog_api_setStdPrint(std::int8_t on) {
    __atomic_store_n(&flag_stdPrint, on, __ATOMIC_RELAXED);
}

std::int32_t zxlog_api_strCasestrNum(const char* text, const char* part, std::int32_t max,
                                     std::int32_t matchCase) {
    if (text == nullptr || part == nullptr || text[0] == '\0' || part[0] == '\0') {
        return 0;
    }
    // Most texts begin with the part or are not longer than it, as when two addresses are compared.
    // Then there is nothing to search.
    std::size_t size = 0;
    while (part[size] != '\0' && text[size] == part[size]) {
        ++size;
    }
    const bool begins = part[size] == '\0';
    if (begins && max == 1) {
        return 1;
    }
    while (part[size] != '\0' && text[size] != '\0') {
        ++size;
    }
    if (part[size] != '\0' || (text[size] == '\0' && matchCase != 0 && !begins)) {
        return 0;
    }
    return count_parts(text, {part, size}, max, matchCase != 0);
}

}  // extern "C"
