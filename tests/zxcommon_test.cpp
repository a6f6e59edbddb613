#include "zxcommon.h"

#include <gmock/gmock.h>

#include <cstring>
#include <tuple>

#include "log_capture.hpp"
#include "zxenv.h"
#include "zxlog.h"

namespace {

TEST(CommonTest, TellsVersionAndModules) {
    EXPECT_STREQ(zxcommon_api_version(), "01.03.26");
    EXPECT_EQ(ZXCOMMON_VERSION, 10326);

    char text[1 + ZXCOMMON_INFO_SIZE] = "x";
    zxcommon_api_info(text);
    EXPECT_STREQ(text,
                 "xlinux64|json|env|epoll|fifo|memapi|netframe|net|system|mpegts|signal|thread|"
                 "time|types");
    EXPECT_EQ(std::strlen(text), sizeof text - 1);
}

TEST(CommonTest, WritesOnlyWhatLevelAndTagFilterLetThrough) {
    zx::test::LogCapture log;
    const std::tuple<unsigned, const char*, std::size_t> cases[] = {
        {0, "", 0}, {1, "", 1}, {1, "zxcommon_inner", 1}, {5, "FIFO_STRU,ZXCOMMON_INNER", 0}};
    for (const auto& [level, filter, lines] : cases) {
        log.set_level(level);
        std::strcpy(strfilterTags, filter);
        zxcommon_api_info(nullptr);
        EXPECT_EQ(log.take().size(), lines) << level << " " << filter;
    }
}

TEST(CommonTest, NamesFunctionAndLineWhenSwitchedOn) {
    zx::test::LogCapture log;
    flag_printLineFunc = 1;
    zxcommon_api_info(nullptr);
    EXPECT_THAT(log.take(), testing::ElementsAre(testing::MatchesRegex(
                                "\\[ERROR\\]\\[ZXCOMMON_INNER\\]\\[zxcommon_api_info [0-9]+\\]"
                                "Param error####str")));
}

TEST(EnvTest, SetsReadsAndRemoves) {
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "", 0), 1);
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "") << "empty is not unset";
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "one", 1), 1);
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "two", 0), 1);
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "one");
    static char text[] = "ZX_TEST=three";
    EXPECT_EQ(zxenv_api_put(text), 1);
    text[8] = 'T';
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "Three") << "it is the text itself";
    EXPECT_EQ(zxenv_api_unset("ZX_TEST"), 0);
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "x");
    EXPECT_EQ(zxenv_api_unset("a=b"), -1);
}

}  // namespace
