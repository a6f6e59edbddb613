#include "zxstr.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;

class StringTest : public testing::Test {
protected:
    zx::test::LogCapture log;
};

TEST_F(StringTest, WarnsOfUrlsThatAreCut) {
    const struct {
        std::string url, expected;
        const char* needed;  // as the warning has it
    } cases[] = {
        {std::string(1023, 'u'), std::string(1023, 'u'), nullptr},
        {std::string(1024, 'u'), std::string(1024, 'u'), "1025)"},
        {std::string(2000, 'u') + "?q", std::string(1024, 'u'), "2003)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.url.size());
        std::vector<std::string> lines;
        if (c.needed != nullptr) {
            lines = {std::string("[WARN][STRING]There is a bug that buf1 (1024 < ") + c.needed +
                     "(" + c.url + "),please fix!!"};
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
        const char *path, *expected;
    } cases[] = {
        {"", nullptr, "h", 5000, "", "h:[5000:5001]"},
        {"udp", "me", "h", 500, "", "udp://@me@h:[500:501]"},
        {"http", "", "h", 80, "/v", "http://h:80//v_[000:001]"},
        {"", "", "", 0, "live.m3u8", "live_[000:001].m3u8"},
        {"http", "", "h", 80, "/live/a.m3u8", "http://_[000:001].m3u8"},
        {"", "", "", 0, "m3u8", "_[000:001].m3u8"},
    };
    for (const auto& c : cases) {
        char range[80] = {};
        zxstr_api_buildListurl2(c.proto, c.auth, c.host, c.port, c.path, 2, range);
        EXPECT_STREQ(range, c.expected);
    }
    char list[2][8] = {};
    zxstr_api_buildListurl("", nullptr, "h", 5000, nullptr, 2, sizeof list[0], list[0]);
    EXPECT_THAT(log.take(), ElementsAre("[INFO][STRING]000.h:5000", "[INFO][STRING]001.h:5001"));
}

TEST_F(StringTest, ComparesTheFirst127CharactersOfAKey) {
    const std::string key(127, 'k');
    char value[8];
    EXPECT_EQ(zxstr_api_findTag(value, sizeof value, key.c_str(), (key + "more=v").c_str()), 1);
    EXPECT_STREQ(value, "v");
}

}  // namespace
