#include "zxstr.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxlog.h"

namespace {

std::string g_search;

}  // namespace

// In place of the logging library's, whose rule decides what matches; it asks for its tags, too.
extern "C" int32_t zxlog_api_strCasestrNum(const char* text, const char* part, int32_t max,
                                           int32_t match_case) {
    g_search = std::string(text) + " " + part + " " + std::to_string(10 * max + match_case);
    return g_search.starts_with("text part") ? 2 : 0;
}

namespace {

using testing::ElementsAre;

TEST(StringTest, SearchesByTheRuleOfTheLog) {
    EXPECT_EQ(zxstr_api_isCasestr("text", "part"), 1);
    EXPECT_EQ(g_search, "text part 11");
    EXPECT_EQ(zxstr_api_isCasestr_IgnoreLetterCase("text", "part"), 1);
    EXPECT_EQ(g_search, "text part 10");
}

TEST(StringTest, WarnsOfUrlsThatAreCut) {
    zx::test::LogCapture log;
    char out[ZXSTR_URL_SIZE];
    for (const std::size_t size : {1023U, 1024U, 2000U}) {
        const std::string url = std::string(size, 'u') + (size > 1024 ? "?q" : "");
        EXPECT_EQ(zxstr_api_getUrlRealPath(url.c_str(), out), out);
        EXPECT_EQ(out, url.substr(0, 1024));
        EXPECT_THAT(
            log.take(),
            testing::ContainerEq(
                size == 1023
                    ? std::vector<std::string>()
                    : std::vector{"[WARN][STRING]There is a bug that buf1 (1024 < " +
                                  std::to_string(url.size() + 1) + ")(" + url + "),please fix!!"}));
    }
}

TEST(StringTest, NumbersTheUrlsOfAList) {
    zx::test::LogCapture log;
    char list[2][8] = {};
    zxstr_api_buildListurl("", nullptr, "h", 5000, nullptr, 2, sizeof list[0], list[0]);
    EXPECT_THAT(log.take(), ElementsAre("[INFO][STRING]000.h:5000", "[INFO][STRING]001.h:5001"));
}

TEST(StringTest, ComparesTheFirst127CharactersOfAKey) {
    const std::string key(127, 'k');
    char value[8];
    EXPECT_EQ(zxstr_api_findTag(value, sizeof value, key.c_str(), (key + "more=v").c_str()), 1);
    EXPECT_STREQ(value, "v");
}

}  // namespace
