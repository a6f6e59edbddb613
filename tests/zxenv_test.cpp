#include "zxenv.h"

#include <gmock/gmock.h>

#include <cstdlib>

#include "log_capture.hpp"

namespace {

TEST(EnvTest, SetsReadsAndRemoves) {
    zx::test::LogCapture log;
    zxenv_api_unset("ZX_TEST");
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "x");
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "", 0), 1);
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "") << "empty is not unset";
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "one", 1), 1);
    EXPECT_EQ(zxenv_api_set("ZX_TEST", "two", 0), 1);
    EXPECT_STREQ(std::getenv("ZX_TEST"), "one");
    static char text[] = "ZX_TEST=three";
    EXPECT_EQ(zxenv_api_put(text), 1);
    text[8] = 'T';
    EXPECT_STREQ(zxenv_api_get("ZX_TEST", "x"), "Three") << "it is the text itself";
    EXPECT_EQ(zxenv_api_unset("ZX_TEST"), 0);
    EXPECT_EQ(zxenv_api_unset("a=b"), -1);

    EXPECT_EQ(zxenv_api_set("a=b", "c", 1), 0);
    EXPECT_STREQ(zxenv_api_get(nullptr, "x"), "x");
    EXPECT_EQ(zxenv_api_set("ZX_TEST", nullptr, 1), 0);
    EXPECT_EQ(zxenv_api_put(nullptr), 0);
    EXPECT_THAT(log.take(), testing::ElementsAre("[ERROR][ENV]setenv(a=b=c, overwrite:1)  failed",
                                                 "[ERROR][ENV]Param error####name",
                                                 "[ERROR][ENV]Param error####str_value",
                                                 "[ERROR][ENV]Param error####name_val"));
}

}  // namespace
