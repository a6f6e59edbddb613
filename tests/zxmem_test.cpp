#include "zxmem.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxlog.h"
#include "zxt.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// Each test begins and ends with an empty list and tracking off.
class MemTest : public testing::Test {
protected:
    ~MemTest() override {
        zxmem_api_deinit();
        zxmem_api_init(0);
    }

    std::vector<std::string> listing() {
        zxmem_api_showBlock();
        return log.take();
    }
    static std::string row(int index, const void* buffer, const char* rest) {
        char text[300];
        std::snprintf(text, sizeof text, "[INFO][MEMRY_MAP]Memry leak[%08d]:addr ,size :%p   %s",
                      index, buffer, rest);
        return text;
    }

    zx::test::LogCapture log;
};

TEST_F(MemTest, ListsLiveBuffersInOrderOfAllocation) {
    EXPECT_THAT(listing(), ElementsAre("[WARN][MEMRY_MAP]No support zxmem_api_showBlock"));
    const std::string long_name(128, 'n');
    zxmem_api_init(1);
    void* first = zxmem_api_malloc(1536, long_name.c_str(), "a.c", 10);
    void* second = zxmem_api_malloc(7, nullptr, "b.c", 20);
    EXPECT_THAT(listing(), ElementsAre("[WARN][MEMRY_MAP]There is a bug that buf1 (128 < 129)(" +
                                           long_name + "),please fix!!",
                                       row(1, first, "1.50KB ---file,line a.c 10"),
                                       row(2, second, "7B ---file,line b.c 20"),
                                       "[INFO][MEMRY_MAP]Toal memry leak:1543 byte"));
    flag_stdPrint = 1;  // every echoed line counts too
    testing::internal::CaptureStdout();
    EXPECT_THAT(listing(), testing::Contains(row(3, second, "7B ---file,line b.c 20")));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Memry leak[00000004]"));
    flag_stdPrint = 0;
    zxmem_api_free(&first);
    zxmem_api_free(&second);
    EXPECT_THAT(listing(), ElementsAre("[INFO][MEMRY_MAP]Toal memry leak:0 byte"));
}

TEST_F(MemTest, SaysWhatItCannotDo) {
    zxmem_api_init(1);
    zxmem_api_deinit();
    void* missed = zxmem_api_malloc(4, "missed", "m.c", 2);
    zxmem_api_free(&missed);
    zxmem_api_showBlock();
    char html[100] = "";
    zxmem_api_info(html, nullptr);
    EXPECT_STREQ(html, "<h4 style=\"color:black;\">Wait zxmem init...</h4>");
    EXPECT_THAT(log.take(), ElementsAre("[WARN][MEMRY_MAP]Must init  zxmem_zxlock_ctt  first",
                                        "[WARN][MEMRY_MAP]Must init  zxmem_zxlock_ctt  first",
                                        "[ERROR][MEMRY_MAP]Must init  zxmem_zxlock_ctt  first",
                                        "[ERROR][MEMRY_MAP]Must init  zxmem_zxlock_ctt  furst"));
    zxmem_api_init(1);
    zxmem_api_free(&missed);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][MEMRY_MAP]dbuf is null"));
}

TEST_F(MemTest, ShowsLiveBuffersAsATable) {
    char html[4096] = "<p>";
    zxmem_api_info(html, "off");
    zxmem_api_init(1);
    void* buffer = zxmem_api_malloc(10239, "name", "a.c", 10);
    zxmem_api_info(html, nullptr);
    zxmem_api_free(&buffer);
    const auto cells = [](const std::vector<std::string>& texts) {
        std::string all;
        for (const std::string& text : texts) {
            all += "<th align=\"left\">" + text + "</th><th align=\"left\"></th>";
        }
        return all;
    };
    EXPECT_THAT(
        html,
        testing::MatchesRegex(
            "<p><h4 style=\"color:black;\">off</h4>"
            "<table cellpadding=\"4\" cellspacing=\"0\"><tbody style=\"color:black;\"><tr>" +
            cells({"NUM", "ADDR", "NAME", "TIME", "FALG", "SIZE", "FILE", "LINE"}) +
            "<th align=\"left\"></tr><tr>" +
            cells({"00000001", "0x[0-9a-f]+", "name", "[0-9]{2}:[0-9]{2}:[0-9]{2}", "nor", "9.99KB",
                   "a.c", "10"}) +
            "</tr><h4 style=\"color:black;\">Toal memory leak:9.99KB MB</h4></tbody></table>"));
}

TEST_F(MemTest, AmountsHaveBinaryUnits) {
    char text[ZXT_UNIT_SIZE];
    EXPECT_STREQ(zxt_innerapi_bit2str_64(text, 5U << 20U, 1), "5Mb");
    EXPECT_STREQ(zxt_innerapi_bit2str_32(text, UINT32_MAX, 0), "3.99GB");
}

}  // namespace
