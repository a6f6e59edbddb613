// Copies, cuts, splits and searches any texts, against std::string.
#include <dlfcn.h>

#include <vector>

#include "support.hpp"
#include "zxlog.h"
#include "zxstr.h"
#include "zxt.h"

namespace {

using zx::fuzz::cut;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxText = 2048;
constexpr char kSpaces[] = " \f\n\r\t\v";

std::string lower(std::string text, char last = 'Z') {
    for (char& c : text) {
        c = c >= 'A' && c <= last ? static_cast<char>(c + 32) : c;
    }
    return text;
}

void check_bounded(GuardedMemory& out, const std::string& a, const std::string& b,
                   std::size_t size) {
    char* const copied = out.old_text(size);
    require(zxstr_api_lcpy(copied, b.c_str(), size) == b.size(), "the length of a copy");
    require(size == 0 || copied == cut(b, size), "a copy");

    const bool has_room = size > a.size() + 1;
    const std::size_t room = size > a.size() ? size - a.size() - 1 : 0;
    char* text = out.text(a, room);
    require(zxstr_api_lcat(text, b.c_str(), size) == a.size() + b.size(), "the length of both");
    require(text == (has_room ? cut(a + b, size) : a), "both");
    text = out.text(a, room);
    const auto length = zxstr_api_lcatf(text, size, "%s=%d", b.c_str(), 7);
    require(static_cast<std::size_t>(length) == a.size() + b.size() + 2, "the printed length");
    require(text == (has_room ? cut(a + b + "=7", size) : a), "both, printed");
}

// A tokeniser: what it skips, where it stops, and whether the piece keeps the character at which it
// stopped.
struct Tokeniser {
    char** (*take)(char*, std::int32_t, char**);
    const char* skips;
    const char* stops;
    bool keeps_stop;
};
constexpr Tokeniser kTokenisers[] = {
    {zxstr_api_getLine, "\n", "\n", false},
    {zxstr_api_getLine2, "\n", "\n\r", false},
    {zxstr_api_getLine3, "\n", "\n", true},
    {zxstr_api_getWord, " \t\r\n", kSpaces, false},
};

void check_tokeniser(GuardedMemory& out, const Tokeniser& tokeniser, const std::string& text,
                     char* const placed, std::int32_t size) {
    std::size_t at = 0;
    char* cursor = placed;
    while (at < text.size()) {
        const std::size_t begin =
            std::min(text.find_first_not_of(tokeniser.skips, at), text.size());
        std::size_t end = std::min(text.find_first_of(tokeniser.stops, begin), text.size());
        const auto room = static_cast<std::size_t>(std::max(size, 0));
        std::string piece = text.substr(begin, end - begin);
        if (tokeniser.keeps_stop) {
            piece = room < 2 ? "" : cut(piece, room - 1) + text.substr(end, 1);
            ++end;
        }
        char* const buf = out.old_text(room);
        require(tokeniser.take(buf, size, &cursor) == &cursor, "the cursor is returned");
        require(cursor == placed + end, "where a piece ends");
        require(room == 0 || buf == cut(piece, room), "a piece");
        at = end > at ? end : end + 1;  // past a stop that it does not move over
        cursor = placed + at;
    }
}

std::size_t count_of(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = 0; !part.empty() && (at = text.find(part, at)) != std::string::npos;
         at += part.size()) {
        ++count;
    }
    return count;
}

std::string g_search;  // what the logging library was asked

void check_search(const std::string& text, const char* placed, const std::string& part) {
    const std::size_t same = count_of(text, part);
    const std::size_t alike = count_of(lower(text), lower(part));
    const auto found = [](std::size_t count) { return count > 0 ? 1 : 0; };
    g_search.clear();
    require(zxstr_api_isCasestr(placed, part.c_str()) == found(same), "a part");
    require(zxstr_api_isCasestr_IgnoreLetterCase(placed, part.c_str()) == found(alike),
            "a part in either case");
    require(g_search == "1 1 " + text + part + "1 0 " + text + part, "the rule of the log");
    for (const int limit : {0, 1, 2}) {
        const auto limited = [limit](std::size_t count) {
            return limit > 0 ? std::min(static_cast<int>(count), limit) : static_cast<int>(count);
        };
        require(zxlog_api_strCasestrNum(placed, part.c_str(), limit, 1) == limited(same), "parts");
        require(zxlog_api_strCasestrNum(placed, part.c_str(), limit, 0) == limited(alike),
                "parts in either case");
    }
}

void check_replace(GuardedMemory& out, std::string text, const char* placed, const std::string& old,
                   const std::string& with) {
    const std::size_t growth = with.size() > old.size() ? with.size() - old.size() : 0;
    char* const dst = out.old_text(text.size() + 1 + growth * count_of(text, old));
    require(zxstr_api_replace(placed, old.c_str(), with.c_str(), dst) == dst, "the copy");
    for (std::size_t at = 0; !old.empty() && (at = text.find(old, at)) != std::string::npos;
         at += with.size()) {
        text.replace(at, old.size(), with);
    }
    require(dst == text, "a copy with replacements");
}

std::vector<std::string> fields_of(const std::string& text, const std::string& sep, bool any) {
    std::vector<std::string> fields;
    const std::size_t step = any ? 1 : sep.size();
    std::size_t at = 0;
    for (std::size_t end = 0; end != std::string::npos && at <= text.size(); at = end + step) {
        end = any ? text.find_first_of(sep, at) : text.find(sep, at);
        const std::string field = text.substr(at, end - at);
        const bool counts =
            any ? !field.empty() : end != std::string::npos || field.size() >= sep.size();
        if (counts) {
            fields.push_back(field);
        }
        if (end == std::string::npos) {
            break;
        }
    }
    return fields;
}

void check_fields(GuardedMemory& texts, const std::string& text, const std::string& sep, bool any) {
    static GuardedMemory pointers(sizeof(char*) * (kMaxText + 1));
    const std::size_t most =
        any ? (text.size() + 1) / 2 : text.size() / std::max<std::size_t>(1, sep.size());
    void* const slots = pointers.fill(sizeof(char*) * most, 0);
    auto* const out = static_cast<char**>(slots);
    const auto expected =
        any || !sep.empty() ? fields_of(text, sep, any) : std::vector<std::string>();
    char* const placed = texts.text(text);
    const auto count = any ? zxstr_api_split(placed, sep.c_str(), out)
                           : zxstr_api_split2(placed, sep.c_str(), out);
    require(std::equal(out, out + count, expected.begin(), expected.end()), "the fields");
}

void check_letters(GuardedMemory& out, const std::string& text, const char* placed) {
    const auto letters = [&](std::uint32_t (*turn)(const char*, char*)) {
        auto* dst = reinterpret_cast<char*>(out.fill(text.size(), 'x'));
        const std::string turned(dst, turn(placed, dst));
        dst = out.text(text);
        require(turn(dst, dst) == text.size() && dst == turned, "in the text's own place");
        return turned;
    };
    require(letters(zxstr_api_outLLetters) == lower(text, 'X'), "small letters");
    std::string capitals = text;
    for (char& c : capitals) {
        c = c >= 'a' && c <= 'x' ? static_cast<char>(c - 32) : c;
    }
    require(letters(zxstr_api_outULetters) == capitals, "capitals");
}

}  // namespace

// This comes before the logging library's function, which decides what matches.
extern "C" std::int32_t zxlog_api_strCasestrNum(const char* text, const char* part,
                                                std::int32_t max, std::int32_t match_case) {
    static const auto kReal = reinterpret_cast<decltype(&zxlog_api_strCasestrNum)>(
        dlsym(RTLD_NEXT, "zxlog_api_strCasestrNum"));
    g_search += std::to_string(max) + " " + std::to_string(match_case) + " " + text + part;
    return kReal(text, part, max, match_case);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory texts(kMaxText + 1);
    static GuardedMemory out(kMaxText * 24);

    // The input: a size, two short texts and a long one.
    Input input({data, std::min(size, kMaxText)});
    const auto room = input.take<std::int8_t>();
    const std::string part = input.take_line(16);
    const std::string with = input.take_line(16);
    const std::string text = input.take_text(kMaxText);

    check_bounded(out, part + with, text, static_cast<std::size_t>(std::max<int>(room, 0)));
    check_fields(texts, text, part, true);
    check_fields(texts, text, part, false);
    char* const placed = texts.text(text);
    for (const Tokeniser& tokeniser : kTokenisers) {
        check_tokeniser(out, tokeniser, text, placed, room);
    }
    check_search(text, placed, part);
    check_replace(out, text, placed, part, with);
    check_letters(out, text, placed);
    for (int c = 0; c < 256; ++c) {
        require(zxstr_api_isSpace(static_cast<char>(c)) ==
                    (c != 0 && std::strchr(kSpaces, c) != nullptr ? 1 : 0),
                "a space");
    }
    return 0;
}
