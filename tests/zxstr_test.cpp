#include "zxstr.h"

#include <gmock/gmock.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StringTest : public testing::Test {
protected:
    zx::test::LogCapture log;
};

TEST_F(StringTest, CopiesAndAppendsWithinTheRoom) {
    const struct {
        const char *before, *added;
        uint64_t size;
        const char *copied, *appended;
    } cases[] = {
        {"abc", "hello", 0, "abc", "abc"},        {"abc", "hello", 1, "", "abc"},
        {"abc", "hello", 3, "he", "abc"},         {"abc", "hello", 4, "hel", "abc"},
        {"abc", "hello", 5, "hell", "abch"},      {"abc", "hello", 6, "hello", "abche"},
        {"abc", "hello", 9, "hello", "abchello"}, {"", "", 9, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.before << "+" << c.added << " in " << c.size);
        const std::size_t sum = std::strlen(c.before) + std::strlen(c.added);
        char copy[16], append[16], print[16];
        for (char* buffer : {copy, append, print}) {
            std::strcpy(buffer, c.before);
        }
        EXPECT_EQ(zxstr_api_lcpy(copy, c.added, c.size), std::strlen(c.added));
        EXPECT_STREQ(copy, c.copied);
        EXPECT_EQ(zxstr_api_lcat(append, c.added, c.size), sum);
        EXPECT_STREQ(append, c.appended);
        EXPECT_EQ(zxstr_api_lcatf(print, c.size, "%s", c.added), static_cast<int32_t>(sum));
        EXPECT_STREQ(print, c.appended);
    }
    EXPECT_EQ(zxstr_api_lcpy(nullptr, "hello", 0), 5U);
}

TEST_F(StringTest, TakesPiecesOffTheFront) {
    const struct {
        char** (*take)(char*, int32_t, char**);
        const char* text;
        int32_t size;
        const char* piece;
        int rest;  // where the cursor is left
    } cases[] = {
        {zxstr_api_getLine, "\n\nab\ncd", 8, "ab", 4},
        {zxstr_api_getLine, "ab\r\ncd", 8, "ab\r", 3},
        {zxstr_api_getLine, "abcdef\n", 4, "abc", 6},
        {zxstr_api_getLine, "abc\n", INT_MIN, "#", 3},
        {zxstr_api_getLine2, "\nab\r\ncd", 8, "ab", 3},
        {zxstr_api_getLine2, "\r\ncd", 8, "", 0},
        {zxstr_api_getLine3, "\n\nab\ncd", 8, "ab\n", 5},
        {zxstr_api_getLine3, "abcdef\n", 4, "ab\n", 7},
        {zxstr_api_getLine3, "ab\n", 1, "", 3},
        {zxstr_api_getLine3, "ab", 8, "ab", 3},
        {zxstr_api_getWord, "\t\r\n one\vtwo", 8, "one", 7},
        {zxstr_api_getWord, "\fone", 8, "", 0},
        {zxstr_api_getWord, "longword ", 5, "long", 8},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " into " << c.size);
        std::string text = c.text;
        char* cursor = text.data();
        char buf[16] = "#";
        std::memset(buf + 1, 0, sizeof buf - 1);
        std::memset(buf + (c.size > 0 ? c.size : 1), '!', 4);
        EXPECT_EQ(c.take(buf, c.size, &cursor), &cursor);
        EXPECT_EQ(std::string(buf, strnlen(buf, c.size > 0 ? sizeof buf : 1)), c.piece);
        EXPECT_EQ(buf[c.size > 0 ? c.size : 1], '!');
        EXPECT_EQ(cursor - text.data(), c.rest);
    }
    EXPECT_EQ(zxstr_api_isSpace('\v'), 1);
    EXPECT_EQ(zxstr_api_isSpace('\0'), 0);
}

TEST_F(StringTest, SearchesAndReplaces) {
    EXPECT_EQ(zxstr_api_isCasestr("00:1a:2b", "1a"), 1);
    EXPECT_EQ(zxstr_api_isCasestr("00:1a:2b", "1A"), 0);
    EXPECT_EQ(zxstr_api_isCasestr("1a", "00:1a"), 0);
    EXPECT_EQ(zxstr_api_isCasestr_IgnoreLetterCase("00:1a:2b", "1A"), 1);

    const struct {
        const char *src, *old, *with, *expected;
    } cases[] = {
        {"a-b-c", "-", "::", "a::b::c"},       {"aaaaa", "aa", "b", "bba"}, {"xax", "x", "", "a"},
        {"abab", "ab", "ab ab", "ab abab ab"}, {"abc", "", "x", "abc"},     {"", "a", "b", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.src);
        char dst[32];
        EXPECT_EQ(zxstr_api_replace(c.src, c.old, c.with, dst), dst);
        EXPECT_STREQ(dst, c.expected);
    }
}

TEST_F(StringTest, Splits) {
    using Fields = std::vector<std::string>;
    const struct {
        int32_t (*split)(char*, const char*, char**);
        const char *text, *at;
        Fields expected;
    } cases[] = {
        {zxstr_api_split, ",a,;b;", ",;", {"a", "b"}},
        {zxstr_api_split, "", ",", {}},
        {zxstr_api_split2, "a::bb::", "::", {"a", "bb"}},
        {zxstr_api_split2, "a::b", "::", {"a"}},
        {zxstr_api_split2, "a,,b", ",", {"a", "", "b"}},
        {zxstr_api_split2, "a,", ",", {"a"}},
        {zxstr_api_split2, "::::", "::", {"", ""}},
        {zxstr_api_split2, ":", "::", {}},
        {zxstr_api_split2, "abc", "", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.text << " at " << c.at);
        std::string text = c.text;
        std::vector<char*> out(3, nullptr);
        ASSERT_EQ(c.split(text.data(), c.at, out.data()), std::ssize(c.expected));
        EXPECT_EQ(Fields(out.begin(), out.begin() + std::ssize(c.expected)), c.expected);
    }
}

// The parts as "proto auth host port path flag"; "!" and 7 are what was not touched.
std::string split_url(const char* url, int size) {
    char proto[64] = "!", auth[64] = "!", host[64] = "!", path[64] = "!";
    int port = 0;
    uint8_t bracketed = 7;
    zxstr_api_urlSplit(proto, size, auth, size, host, size, &port, path, size, &bracketed, url);
    return std::string(proto) + " " + auth + " " + host + " " + std::to_string(port) + " " + path +
           " " + std::to_string(bracketed);
}

TEST_F(StringTest, SplitsUrls) {
    const struct {
        const char *url, *expected;
        int size = 64;
    } cases[] = {
        {"rtmp://user:pw@[fe80::1]:1935/live/a?x=1", "rtmp user:pw fe80::1 1935 /live/a?x=1 1"},
        {"http://h.example:8080/a:b@c", "http  h.example 8080 /a:b@c 0"},
        {"host:80", "host  80 -1  0"},
        {"s://a@b@c/", "s a b@c -1 / 0"},
        {"s://h?x=/y", "s  h?x= -1 /y 0"},
        {"s://h:1?x=2", "s  h 1 ?x=2 0"},
        {"s://[::1]8/", "s  ::1 -1 / 1"},
        {"s://[::1/]:8", "s  [ 0 /]:8 0"},
        {"s://u@", "s u  -1  0"},
        {"file:///etc", "file   -1 /etc 7"},
        {"/no/scheme", "   -1 /no/scheme 7"},
        {"", "   -1  7"},
        {"rtmp://user@[::1]:9/live", "rt us :: 9 /l 1", 3},
        {"rtmp://user@[::1]:9/live", "! ! ! 9 ! 1", -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url);
        EXPECT_EQ(split_url(c.url, c.size), c.expected);
        zxstr_api_urlSplit(nullptr, 9, nullptr, 9, nullptr, 9, nullptr, nullptr, 9, nullptr, c.url);
    }
}

TEST_F(StringTest, CutsTheQueryOffAUrl) {
    const std::string warning = "[WARN][STRING]There is a bug that buf1 (1024 < ";
    const struct {
        std::string url, expected;
        const char* needed = nullptr;  // as the warning has it
    } cases[] = {
        {"http://h/p?a=1?b", "http://h/p"},
        {"p?", "p"},
        {"?a=1?b", "a=1"},
        {"?a=1", "?a=1"},
        {"", ""},
        {std::string(1023, 'u'), std::string(1023, 'u')},
        {std::string(1024, 'u'), std::string(1024, 'u'), "1025)"},
        {std::string(2000, 'u') + "?q", std::string(1024, 'u'), "2003)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        std::vector<std::string> lines;
        if (c.needed != nullptr) {
            lines.push_back(warning + c.needed + "(" + c.url + "),please fix!!");
        }
        char out[ZXSTR_URL_SIZE];
        EXPECT_EQ(zxstr_api_getUrlRealPath(c.url.c_str(), out), out);
        EXPECT_EQ(out, c.expected);
        EXPECT_EQ(log.take(), lines);
    }
}

TEST_F(StringTest, NumbersTheUrlsOfAList) {
    const struct {
        const char *proto, *auth, *host;
        int port;
        const char *path, *before, *after;  // what stands around the number
        int first = 0;
    } cases[] = {
        {"", nullptr, "h", 5000, "", "h:", "", 5000},
        {"udp", "me", "h", 500, "", "udp://@me@h:", "", 500},
        {"http", "", "h", 80, "/v", "http://h:80//v_", ""},
        {"", "", "", 0, "live.m3u8", "live_", ".m3u8"},
        {"http", "", "h", 80, "/live/a.m3u8", "http://_", ".m3u8"},
        {"", "", "", 0, "m3u8", "_", ".m3u8"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.before);
        char list[2][40] = {};
        char numbers[2][16];
        char range[80] = {};
        for (int i = 0; i < 2; ++i) {
            std::snprintf(numbers[i], sizeof numbers[i], "%03d", c.first + i);
        }
        zxstr_api_buildListurl(c.proto, c.auth, c.host, c.port, c.path, 2, sizeof list[0], list[0]);
        EXPECT_EQ(list[0], std::string(c.before) + numbers[0] + c.after);
        EXPECT_EQ(list[1], std::string(c.before) + numbers[1] + c.after);
        EXPECT_THAT(log.take(), ElementsAre("[INFO][STRING]000." + std::string(list[0]),
                                            "[INFO][STRING]001." + std::string(list[1])));
        zxstr_api_buildListurl2(c.proto, c.auth, c.host, c.port, c.path, 2, range);
        EXPECT_EQ(range,
                  std::string(c.before) + "[" + numbers[0] + ":" + numbers[1] + "]" + c.after);
        EXPECT_THAT(log.take(), IsEmpty());
    }
}

TEST_F(StringTest, KeepsListEntriesWithinTheirStride) {
    std::string list = std::string(16, '\0') + "!!!!";
    zxstr_api_buildListurl("proto", "", "host", 99999, "", 2, 8, list.data());
    EXPECT_EQ(list, std::string("proto:/\0proto:/\0!!!!", 20));
    zxstr_api_buildListurl("", "", "", 0, "a/long/path.m3u8", 1, 8, list.data() + 8);
    zxstr_api_buildListurl("p", "", "h", 1, "", 1, 0, list.data() + 16);
    EXPECT_EQ(list.substr(16), "!!!!");
}

TEST_F(StringTest, FindsTheValueOfAKey) {
    const std::string cut_key(127, 'k');
    const std::string long_key = cut_key + "more=v";
    const struct {
        const char *query, *name;
        uint32_t size;
        int32_t found;
        const char* value;
    } cases[] = {
        {"?a=1&b=x+y", "b", 16, 1, "x y"},  {"a=1&b=2", "a", 16, 1, "1"},
        {"a=1&b=%41+", "b", 16, 1, "%41 "}, {"a=1&B=2", "b", 16, 0, "2"},
        {"a=1&b&c=3", "b", 16, 1, ""},      {"a=1&b", "c", 16, 0, ""},
        {"a=x=y", "a", 16, 1, "x=y"},       {"??a=1", "?a", 16, 1, "1"},
        {"a=12345", "a", 4, 1, "123"},      {"a=12345", "a", 1, 1, ""},
        {"a=12345", "a", 0, 1, "before"},   {long_key.c_str(), cut_key.c_str(), 16, 1, "v"},
        {nullptr, "a", 16, 0, "before"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << (c.query != nullptr ? c.query : "(null)") << " " << c.name);
        char value[16] = "before";
        EXPECT_EQ(zxstr_api_findTag(value, c.size, c.name, c.query), c.found);
        EXPECT_STREQ(value, c.value);
    }
}

TEST_F(StringTest, ChangesTheCaseOfAllLettersButTheLastTwo) {
    char text[] = "axyzAXYZ@[`{\xe4|";
    const auto length = static_cast<uint32_t>(sizeof text - 2);
    EXPECT_EQ(zxstr_api_outULetters("axyzAXYZ@[`{\xe4", text), length);
    EXPECT_STREQ(text, "AXyzAXYZ@[`{\xe4|");
    EXPECT_EQ(zxstr_api_outLLetters("axyzAXYZ@[`{\xe4", text), length);
    EXPECT_STREQ(text, "axyzaxYZ@[`{\xe4|");
}

}  // namespace
