#include "zxcommon.h"

#include <gmock/gmock.h>

#include <cstring>
#include <tuple>

#include "log_capture.hpp"
#include "zxlog.h"

namespace {

using testing::ElementsAre;

class CommonTest : public testing::Test {
protected:
    zx::test::LogCapture log;
};

TEST_F(CommonTest, TellsVersionAndModules) {
    EXPECT_STREQ(zxcommon_api_version(), "01.03.26");
    EXPECT_EQ(ZXCOMMON_VERSION, 10326);

    char text[1 + ZXCOMMON_INFO_SIZE] = "x";
    zxcommon_api_info(text);
    EXPECT_STREQ(text,
                 "xlinux64|json|env|epoll|fifo|memapi|netframe|net|system|mpegts|signal|thread|"
                 "time|types");
    EXPECT_EQ(std::strlen(text), sizeof text - 1);
}

TEST_F(CommonTest, WritesOnlyWhatLevelAndTagFilterLetThrough) {
    const std::tuple<unsigned, const char*, std::size_t> cases[] = {
        {0, "", 0}, {1, "", 1}, {1, "zxcommon_inner", 1}, {5, "FIFO_STRU,ZXCOMMON_INNER", 0}};
    for (const auto& [level, filter, lines] : cases) {
        log.set_level(level);
        std::strcpy(strfilterTags, filter);
        zxcommon_api_info(nullptr);
        EXPECT_EQ(log.take().size(), lines) << level << " " << filter;
    }
}

TEST_F(CommonTest, NamesFunctionAndLineWhenSwitchedOn) {
    zxcommon_api_info(nullptr);
    flag_printLineFunc = 1;
    zxcommon_api_info(nullptr);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXCOMMON_INNER]Param error####str",
                                        testing::MatchesRegex("\\[ERROR\\]\\[ZXCOMMON_INNER\\]"
                                                              "\\[zxcommon_api_info [0-9]+\\]"
                                                              "Param error####str")));
}

}  // namespace
