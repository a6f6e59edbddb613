#include "zxmd.h"

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "log_capture.hpp"

namespace {

std::vector<std::string> g_commands;

}  // namespace

// In place of the C library's, also for the library under test.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    g_commands.emplace_back(command);
    static const auto kReal = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"));
    return kReal(command);
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class FileTest : public testing::Test {
protected:
    FileTest() {
        char name[] = "/tmp/zxmd_test_XXXXXX";
        dir = mkdtemp(name);
        g_commands.clear();
    }
    ~FileTest() override { fs::remove_all(dir); }

    std::string put(const char* name, const std::string& content) {
        std::ofstream(dir + "/" + name) << content;
        return dir + "/" + name;
    }
    static std::string content(const std::string& path) {
        std::string line;
        std::getline(std::ifstream(path), line);
        return line;
    }

    zx::test::LogCapture log;
    std::string dir;
    char data[16] = "0123456789";
};

TEST_F(FileTest, ReadsAndTerminatesWhereThereIsRoom) {
    const std::string path = put("five", "abcde");
    const struct {
        int32_t (*read)(const char*, void*, uint32_t);
        uint32_t len;
        std::string buf;  // of 8 bytes that were "xxxxxxxx"
        int32_t result;
    } cases[] = {
        {zxmd_api_read, 8, {"abcde\0xx", 8}, 5}, {zxmd_api_read, 5, "abcdexxx", 5},
        {zxmd_api_read2, 2, "abxxxxxx", 2},      {zxmd_api_read3, 8, "abcdexxx", 5},
        {zxmd_api_read3, 3, "abcxxxxx", 3},
    };
    for (const auto& c : cases) {
        std::string buf(8, 'x');
        EXPECT_EQ(c.read(path.c_str(), buf.data(), c.len), c.result) << c.buf << " " << c.len;
        EXPECT_EQ(buf, c.buf);
        EXPECT_EQ(c.read("/nowhere/x", buf.data(), 3000000000U), -1);
        EXPECT_THAT(log.take(), ElementsAre("[WARN][ZXMD]Read len(-1294967296) is out of "
                                            "range(0~2147483646),set to 2147483646",
                                            "[ERROR][ZXMD]Open (/nowhere/x) failed"));
    }
}

TEST_F(FileTest, WritesAppendsAndCounts) {
    const std::string path = dir + "/out", missing = dir + "/missing", unsafe = dir + "/a;b";
    EXPECT_EQ(zxmd_api_write(path.c_str(), data, 9, "w"), 9);
    EXPECT_EQ(zxmd_api_write(path.c_str(), data, 4, "w"), 4);
    EXPECT_EQ(zxmd_api_writea(path.c_str(), data, 2), 2);
    EXPECT_EQ(content(path), "012301");
    EXPECT_EQ(zxmd_api_write(missing.c_str(), data, 3, "r+"), -1);
    EXPECT_EQ(zxmd_api_write(missing.c_str(), data, 3, "r+"), 3) << "the next call finds it";
    EXPECT_EQ(zxmd_api_write(unsafe.c_str(), data, 3, "r+"), -1);
    EXPECT_THAT(g_commands, ElementsAre("touch " + missing + " "));
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXMD]Open (" + missing + ") failed",
                                        "[ERROR][ZXMD]Open (" + unsafe + ") failed"));
    EXPECT_EQ(zxmd_api_write("/dev/full", data, 4, "w"), 0);
    EXPECT_EQ(data[0], '\0') << "marks where the write stopped";
}

TEST_F(FileTest, ReplacesAFileByACompleteCopy) {
    const std::string path = put("file", "old"), side = path + "_tmp";
    const std::string copy = "cp  -fr    " + side + "  " + path + "  > /dev/null";
    EXPECT_EQ(zxmd_api_writeProtect(path.c_str(), data, 4), 4);
    EXPECT_THAT(g_commands, ElementsAre(copy, "rm  -fr   " + side + "   "));
    EXPECT_EQ(content(path), "0123");
    EXPECT_EQ(zxmd_api_isFileExsit(side.c_str()), 0);

    g_commands.clear();
    for (const std::string& refused : {dir + "/a b", dir + "/$(id)", std::string("-f"),
                                       std::string("~root/x"), "/" + std::string(247, 'x')}) {
        EXPECT_EQ(zxmd_api_writeProtect(refused.c_str(), data, 5), -1);
        EXPECT_THAT(log.take(),
                    ElementsAre("[ERROR][ZXMD]Path(" + refused + ") is not fit for a command"));
    }
    EXPECT_THAT(g_commands, IsEmpty());
}

TEST_F(FileTest, TellsSizeTypeAndName) {
    const std::string path = put("five", "abcde"), longer(1024, 'x');
    EXPECT_EQ(zxmd_api_getFileSize(("file://" + path).c_str()), 5U);
    EXPECT_EQ(zxmd_api_getFileSize(longer.c_str()), 0U);
    EXPECT_THAT(log.take(),
                ElementsAre("[WARN][ZXMD]There is a bug that buf1 (1024 < 1025)(" + longer +
                                "),please fix!!",
                            "[ERROR][ZXMD]stat " + longer + " failed(36,File name too long)"));
    EXPECT_STREQ(zxmd_api_getFileType(dir.c_str()), "diretory");
    EXPECT_STREQ(zxmd_api_getFileType("/proc/self/exe"), "symbolic link");
    EXPECT_STREQ(zxmd_api_getFileType("/nowhere/x"), "error");
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXMD]lstat /nowhere/x error"));
    std::string fit;
    for (const char* name : {"a.ts", ".ts", "a.mp3", "b.mp4", "ts", "a.TS", "a.ts.gz", ""}) {
        fit += std::to_string(zxmd_api_fileFormatFilter(name));
    }
    EXPECT_EQ(fit, "11110000");
}

TEST_F(FileTest, RotatesAMessageFileAboveItsLimit) {
    const std::string path = put("run.log", ""), unsafe = put("a&b", "");
    fs::resize_file(unsafe, ZXMD_MSG_FILE_LIMIT + 1);
    zxmd_api_newMsgFile(unsafe.c_str());
    for (const uint64_t over : {0U, 1U}) {
        EXPECT_THAT(g_commands, IsEmpty());
        fs::resize_file(path, ZXMD_MSG_FILE_LIMIT + over);
        zxmd_api_newMsgFile(path.c_str());
    }
    EXPECT_THAT(g_commands, ElementsAre(testing::MatchesRegex("  mv  " + path + "  " + path +
                                                              "_20[0-9]{12}\\.txt")));
    EXPECT_EQ(zxmd_api_isFileExsit(path.c_str()), 0);
}

TEST_F(FileTest, RandomValuesStayInsideTheirBounds) {
    for (uint32_t len = 0; len < 40; ++len) {
        EXPECT_LE(zxmd_api_randomU32(5, 5 + len) - 5, len);
        std::vector<uint8_t> buf(len + 8);
        EXPECT_EQ(zxmd_api_randomStr(buf.data(), len), len);
        EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), 8) << "no NUL inside, none touched behind";
        const std::vector<uint8_t> before = buf;
        zxmd_api_randomInsert(buf.data(), len, 10);
        EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + std::min(len, 10U), before.begin()));
        EXPECT_TRUE(std::equal(buf.begin() + len, buf.end(), before.begin() + len));
    }
}

TEST(Base64Test, CodesThePublishedTexts) {
    constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint8_t> plain;  // RFC 4648, section 10: no letter of "foobar", one, and so on
    for (const char* coded : {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}) {
        const auto size = static_cast<uint32_t>(plain.size());
        char text[ZXMD_BASE64_SIZE(6)] = "";  // without bytes nothing is written
        EXPECT_EQ(zxmd_api_ascii2Base64(kStandard, plain.data(), size, text), std::strlen(coded));
        EXPECT_STREQ(text, coded);
        std::vector<uint8_t> back(6);
        back.resize(zxmd_api_base642Ascii(kStandard, coded, back.data()));
        EXPECT_EQ(back, plain);
        plain.push_back(static_cast<uint8_t>("foobar"[size]));
    }
}

}  // namespace
