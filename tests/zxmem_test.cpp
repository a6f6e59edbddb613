#include "zxmem.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "log_capture.hpp"
#include "zxlog.h"
#include "zxt.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kMustInit[] = "[WARN][MEMRY_MAP]Must init  zxmem_zxlock_ctt  first";

// Each test begins and ends with an empty list and tracking off.
class MemTest : public testing::Test {
protected:
    ~MemTest() override {
        zxmem_api_deinit();
        zxmem_api_init(0);
    }

    std::vector<std::string> listing() {
        log.take();
        zxmem_api_showBlock();
        return log.take();
    }
    static std::string row(int index, const void* buffer, const char* rest) {
        char text[300];
        std::snprintf(text, sizeof text, "[INFO][MEMRY_MAP]Memry leak[%08d]:addr ,size :%p   %s",
                      index, buffer, rest);
        return text;
    }
    static std::string total(int bytes) {
        return "[INFO][MEMRY_MAP]Toal memry leak:" + std::to_string(bytes) + " byte";
    }

    zx::test::LogCapture log;
};

TEST_F(MemTest, ZeroesAndClearsWithAndWithoutTracking) {
    for (const std::uint8_t enable : {std::uint8_t{0}, std::uint8_t{1}}) {
        zxmem_api_init(enable);
        for (const auto allocate : {zxmem_api_malloc, zxmem_api_calloc}) {
            void* buffer = allocate(1000, "buffer", "file", 1);
            ASSERT_NE(buffer, nullptr);
            EXPECT_THAT(std::string(static_cast<char*>(buffer), 1000), Each('\0'));
            zxmem_api_free(&buffer);
            EXPECT_EQ(buffer, nullptr);
        }
        EXPECT_EQ(zxmem_api_malloc(16, "buffer", nullptr, 1), nullptr);
        EXPECT_THAT(log.take(), ElementsAre("[ERROR][MEMRY_MAP]dbuf is null"));
    }
}

TEST_F(MemTest, ListsLiveBuffersInOrderOfAllocation) {
    EXPECT_THAT(listing(), ElementsAre("[WARN][MEMRY_MAP]No support zxmem_api_showBlock"));
    void* untracked = zxmem_api_malloc(1, "early", "early.c", 1);
    const std::string long_name(128, 'n');
    zxmem_api_init(1);
    zxmem_api_init(0);  // too late
    void* first = zxmem_api_malloc(1536, long_name.c_str(), "a.c", 10);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("(128 < 129)(" + long_name)));
    void* second = zxmem_api_malloc(0, nullptr, "b.c", 20);
    void* third = zxmem_api_malloc(7, "third", "c.c", 30);
    EXPECT_THAT(listing(), ElementsAre(row(1, first, "1.50KB ---file,line a.c 10"),
                                       row(2, second, "0B ---file,line b.c 20"),
                                       row(3, third, "7B ---file,line c.c 30"), total(1543)));

    flag_stdPrint = 1;  // every echoed line counts too
    testing::internal::CaptureStdout();
    EXPECT_THAT(listing(), testing::Contains(row(5, third, "7B ---file,line c.c 30")));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("Memry leak[00000006]"));
    flag_stdPrint = 0;
    zxmem_api_free(&second);
    zxmem_api_free(&untracked);
    zxmem_api_free(&first);
    EXPECT_THAT(listing(), ElementsAre(row(1, third, "7B ---file,line c.c 30"), total(7)));
    zxmem_api_free(&third);
    EXPECT_THAT(listing(), ElementsAre(total(0)));
    zxmem_api_free(&third);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][MEMRY_MAP]dbuf is null"));
}

TEST_F(MemTest, KeepsItsNodesFromDeinitToTheNextInit) {
    zxmem_api_init(1);
    void* kept = zxmem_api_malloc(3, "kept", "k.c", 1);
    zxmem_api_deinit();
    void* missed = zxmem_api_malloc(4, "missed", "m.c", 2);
    zxmem_api_free(&missed);
    EXPECT_THAT(log.take(), ElementsAre(kMustInit, kMustInit));
    EXPECT_THAT(listing(), ElementsAre("[ERROR][MEMRY_MAP]Must init  zxmem_zxlock_ctt  first"));
    zxmem_api_init(1);
    EXPECT_THAT(listing(), ElementsAre(row(1, kept, "3B ---file,line k.c 1"), total(3)));
    zxmem_api_free(&kept);
    EXPECT_THAT(listing(), ElementsAre(total(0)));
}

TEST_F(MemTest, RemovesTheOldestNodeOfABuffer) {
    zxmem_api_init(1);
    int x = 0;
    int y = 0;
    zxmem_innerapi_nodeAdd(&x, 1, "x", "x", 1);
    zxmem_innerapi_nodeAdd(&y, 2, "y", "y", 2);
    zxmem_innerapi_nodeAdd(&x, 3, "x", "x", 3);
    zxmem_innerapi_nodeRm(&x);
    zxmem_innerapi_nodeRm(&log);  // not in the list
    EXPECT_THAT(listing(), ElementsAre(row(1, &y, "2B ---file,line y 2"),
                                       row(2, &x, "3B ---file,line x 3"), total(5)));
    zxmem_innerapi_nodeRm(&x);
    zxmem_innerapi_nodeRm(&y);
    zxmem_innerapi_nodeAdd(nullptr, 1, "x", "x", 1);
    zxmem_innerapi_nodeAdd(&x, 1, "x", nullptr, 1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][MEMRY_MAP]dbuf is null", "[ERROR][MEMRY_MAP]dbuf is null"));
    EXPECT_THAT(listing(), ElementsAre(total(0)));
}

// Behind what the text holds already; times of day become TIME.
std::string table_behind(const char* before, const char* text) {
    std::string html(8192, '\0');
    html.replace(0, std::strlen(before), before);
    zxmem_api_info(html.data(), text);
    html.resize(std::strlen(html.c_str()));
    for (std::size_t i = 0; i + 9 < html.size(); ++i) {
        if (html[i] == '>' && html[i + 3] == ':' && html[i + 6] == ':' && html[i + 9] == '<') {
            html.replace(i + 1, 8, "TIME");
        }
    }
    return html;
}

TEST_F(MemTest, ShowsLiveBuffersAsATable) {
    EXPECT_EQ(table_behind("<p>", "off"), "<p><h4 style=\"color:black;\">off</h4>");
    zxmem_api_init(1);
    zxmem_api_deinit();
    EXPECT_EQ(table_behind("", nullptr), "<h4 style=\"color:black;\">Wait zxmem init...</h4>");
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][MEMRY_MAP]Must init  zxmem_zxlock_ctt  furst"));
    zxmem_api_init(1);

    const std::string next = "</th><th align=\"left\"></th><th align=\"left\">";
    const auto row_of = [&](const char* number, const void* buffer, const std::string& rest) {
        char address[32];
        std::snprintf(address, sizeof address, "%p", buffer);
        return "<tr><th align=\"left\">" + (number + next) + address + next + rest +
               "</th><th align=\"left\"></th></tr>";
    };
    std::string head =
        "<table cellpadding=\"4\" cellspacing=\"0\"><tbody style=\"color:black;\"><tr>";
    for (const char* title : {"NUM", "ADDR", "NAME", "TIME", "FALG", "SIZE", "FILE", "LINE"}) {
        head += "<th align=\"left\">" + std::string(title) + "</th><th align=\"left\"></th>";
    }
    head += "<th align=\"left\"></tr>";
    const auto tail = [](const std::string& total) {
        return "<h4 style=\"color:black;\">Toal memory leak:" + total + " MB</h4></tbody></table>";
    };
    EXPECT_EQ(table_behind("", nullptr), head + tail("0B"));

    void* first = zxmem_api_malloc(10239, "first", "a.c", 10);
    void* second = zxmem_api_malloc(512000, "second", "b.c", 20);
    EXPECT_EQ(table_behind("before", nullptr),
              "before" + head +
                  row_of("00000001", first,
                         "first" + next + "TIME" + next + "nor" + next + "9.99KB" + next + "a.c" +
                             next + "10") +
                  row_of("00000002", second,
                         "second" + next + "TIME" + next + "high" + next + "500KB" + next + "b.c" +
                             next + "20") +
                  tail("509.99KB"));
    zxmem_api_free(&first);
    zxmem_api_free(&second);
    for (const std::uint32_t size : {10240U, 511999U}) {
        void* middle = zxmem_api_malloc(size, "m", "m.c", 1);
        EXPECT_THAT(table_behind("", ""), HasSubstr(">middle<"));
        zxmem_api_free(&middle);
    }
}

TEST_F(MemTest, AmountsHaveBinaryUnits) {
    const std::pair<std::uint64_t, const char*> cases[] = {{1023, "1023B"},
                                                           {1024, "1KB"},
                                                           {1536, "1.50KB"},
                                                           {1073741824, "1GB"},
                                                           {std::uint64_t{5} << 41U, "10240GB"}};
    char text[ZXT_UNIT_SIZE];
    for (const auto& [value, expected] : cases) {
        EXPECT_STREQ(zxt_innerapi_bit2str_64(text, value, 0), expected);
    }
    EXPECT_STREQ(zxt_innerapi_bit2str_64(text, 5U << 20U, 1), "5Mb");
    EXPECT_STREQ(zxt_innerapi_bit2str_32(text, UINT32_MAX, 0), "3.99GB");
    EXPECT_EQ(zxt_innerapi_bit2str_64(nullptr, 1, 0), nullptr);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXCOMMON_INNER]Param error####outstr"));
}

}  // namespace
