// The level, the flags and the tag filter, which decide whether a line is wanted.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "zxlog.h"

namespace {

// The level is in the lower half. While it is overridden, the upper half is that of the program
// plus one.
constexpr unsigned kHalf = 32;
std::atomic<std::uint64_t> g_level{3};

// In place of strfilterTags, which other threads may be reading.
std::atomic<char> g_override_tags[ZXLOG_FILTER_SIZE];
std::atomic<bool> g_are_tags_overridden{false};

void copy_override(char* out) {
    std::size_t size = 0;
    while (size < ZXLOG_FILTER_SIZE - 1 &&
           (out[size] = g_override_tags[size].load(std::memory_order_relaxed)) != '\0') {
        ++size;
    }
    out[size] = '\0';
}

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

[[gnu::cold, gnu::noinline]] std::int32_t count_in_override(const char* part, std::int32_t max,
                                                            std::int32_t match_case) {
    char tags[ZXLOG_FILTER_SIZE];
    copy_override(tags);
    return zxlog_api_strCasestrNum(tags, part, max, match_case);
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
    return static_cast<std::uint32_t>(g_level.load(std::memory_order_relaxed));
}

void zxlog_api_setFilterTags(const char* tags) {
    std::snprintf(strfilterTags, sizeof strfilterTags, "%s", tags != nullptr ? tags : "");
    g_are_tags_overridden.store(false, std::memory_order_relaxed);
}

void zxlog_api_setPrintLineFunc(std::int8_t on) {
    __atomic_store_n(&flag_printLineFunc, on, __ATOMIC_RELAXED);
}

void zxlog_api_setStdPrint(std::int8_t on) {
    __atomic_store_n(&flag_stdPrint, on, __ATOMIC_RELAXED);
}

std::int32_t zxlog_api_strCasestrNum(const char* text, const char* part, std::int32_t max,
                                     std::int32_t matchCase) {
    if (text == strfilterTags && g_are_tags_overridden.load(std::memory_order_acquire))
        [[unlikely]] {
        return count_in_override(part, max, matchCase);
    }
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

void zxdiag_log_overrideLevel(std::uint32_t level) {
    constexpr std::uint64_t kHighest = UINT32_MAX - 1;
    std::uint64_t seen = g_level.load(std::memory_order_relaxed);
    std::uint64_t own;
    do {
        const bool is_overridden = seen >> kHalf != 0;
        own = is_overridden ? seen >> kHalf : std::min(seen, kHighest) + 1;
    } while (!g_level.compare_exchange_weak(seen, own << kHalf | level, std::memory_order_relaxed));
}

std::int32_t zxdiag_log_restoreLevel(void) {
    std::uint64_t seen = g_level.load(std::memory_order_relaxed);
    do {
        if (seen >> kHalf == 0) {
            return 0;
        }
    } while (!g_level.compare_exchange_weak(seen, (seen >> kHalf) - 1, std::memory_order_relaxed));
    return 1;
}

void zxdiag_log_overrideTags(const char* tags) {
    const char* const text = tags != nullptr ? tags : "";
    const std::size_t size = strnlen(text, ZXLOG_FILTER_SIZE - 1);
    for (std::size_t i = 0; i < size; ++i) {
        g_override_tags[i].store(text[i], std::memory_order_relaxed);
    }
    g_override_tags[size].store('\0', std::memory_order_relaxed);
    g_are_tags_overridden.store(true, std::memory_order_release);
}

std::int32_t zxdiag_log_restoreTags(void) {
    return g_are_tags_overridden.exchange(false, std::memory_order_relaxed) ? 1 : 0;
}

char* zxdiag_log_tags(char* tags) {
    if (tags == nullptr) {
        return nullptr;
    }
    if (g_are_tags_overridden.load(std::memory_order_acquire)) {
        copy_override(tags);
    } else {
        std::snprintf(tags, ZXLOG_FILTER_SIZE, "%s", strfilterTags);
    }
    return tags;
}

}  // extern "C"
