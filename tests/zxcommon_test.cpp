#include "zxcommon.h"

#include <gmock/gmock.h>

#include <cstring>

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
    const struct {
        unsigned level;
        const char* filter;
        bool written;
    } cases[] = {
        {0, "", false},
        {1, "", true},
        {1, "zxcommon_inner", true},
        {5, "FIFO_STRU,ZXCOMMON_INNER", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.level << " " << c.filter);
        log.set_level(c.level);
        std::strcpy(strfilterTags, c.filter);
        zxcommon_api_info(nullptr);
        EXPECT_EQ(log.take().size(), c.written ? 1U : 0U);
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

TEST_F(CommonTest, EchoesInColour) {
    flag_stdPrint = 1;
    testing::internal::CaptureStdout();
    zxcommon_api_info(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\033[1;31m [ERROR][ZXCOMMON_INNER]Param error####str\033[0m\r\n");
}

}  // namespace
