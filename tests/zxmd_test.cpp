#include "zxmd.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "child.hpp"
#include "log_capture.hpp"
#include "zxt.h"

namespace {

std::vector<std::string> g_commands;
bool g_breaks_copies = false;

}  // namespace

// In place of the C library's, also for the library under test.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    g_commands.emplace_back(command);
    if (const std::string text = command; g_breaks_copies && text.starts_with("cp ")) {
        const std::size_t end = text.find("  > "), begin = text.rfind(' ', end - 1) + 1;
        return truncate(text.substr(begin, end - begin).c_str(), 1) == 0 ? 256 : 0;
    }
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

    fs::permissions(put("target", "old"), fs::perms::owner_read);
    fs::remove(path);
    fs::create_symlink("target", path);
    g_breaks_copies = true;
    EXPECT_EQ(zxmd_api_writeProtect(path.c_str(), data, 4), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXMD]inner error:cmd [" + copy + "] failed"));
    g_breaks_copies = false;
    EXPECT_EQ(content(path), "0123") << "the copy emptied it and broke off";
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read);
    EXPECT_TRUE(fs::is_symlink(path));
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

// Of a disk of 1024 KiB and of a limit of the size of files.
TEST_F(FileTest, LosesNothingWhereTheNewContentDoesNotFit) {
    const struct {
        std::size_t old_size, size, limit, written;  // KiB
        const char* line;
    } cases[] = {
        {400, 500, 1024, 500, ""},  // cp empties the old file first
        {300, 900, 1024, 724, "write (x_tmp) failed"},
        {1024, 1, 1024, 0, "write (x_tmp) failed"},
        {100, 300, 200, 200, "write (x_tmp) failed"},
        {100, 600, 1024, 0, "inner error:cmd [cp  -fr    x_tmp  x] failed"},
        {0, 600, 1024, 0, "inner error:cmd [cp  -fr    x_tmp  x] failed"},
    };
    signal(SIGXFSZ, SIG_IGN);
    for (const auto& [old_size, size, limit, written, line] : cases) {
        const std::string told = zx::test::in_child([&, was = old_size, is = size, most = limit] {
            if (!zx::test::own_disk(dir, "size=1m") || chdir(dir.c_str()) != 0) {
                return std::string("skip");
            }
            const std::string old(was << 10U, 'o');
            std::string text(is << 10U, 'n');
            if (was != 0) {
                put("x", old);
            }
            const rlimit files{most << 10U, most << 10U};
            setrlimit(RLIMIT_FSIZE, &files);
            const int32_t result =
                zxmd_api_writeProtect("x", text.data(), static_cast<uint32_t>(text.size()));
            const std::string now = content("x");
            std::string all = std::to_string(result < 0 ? result : result / 1024) +
                              (now == old    ? " old"
                               : now == text ? " new"
                                             : " lost") +
                              (zxmd_api_isFileExsit("x_tmp") != 0 ? " side" : "");
            for (const std::string& said : log.take()) {
                all += " " + said;
            }
            return all;
        });
        if (told == "skip") {
            GTEST_SKIP() << "only an administrator has a disk of its own";
        }
        const std::string_view says(line);
        EXPECT_EQ(told, std::to_string(says.starts_with("inner") ? -1 : static_cast<int>(written)) +
                            (says.empty() ? " new" : " old [ERROR][ZXMD]" + std::string(says)));
    }
    signal(SIGXFSZ, SIG_DFL);
}

// Calls that wait for the other end of a FIFO, until they moved four bytes.
class WaitingTest : public FileTest, public testing::WithParamInterface<int> {
public:
    int32_t wait() {
        char out[8] = "abcd";
        switch (GetParam()) {
            case 0:
                return zxmd_api_read(fifo.c_str(), out, 4);
            case 1:
                return zxmd_api_read3(fifo.c_str(), out, 4);
            default:
                return zxmd_api_write(fifo.c_str(), out, 4, "w");
        }
    }
    static auto open_files() {
        const fs::directory_iterator files("/proc/self/fd");
        return std::distance(begin(files), end(files));
    }

    const std::string fifo = dir + "/fifo";
    const int made = mkfifo(fifo.c_str(), 0600);
};

TEST_P(WaitingTest, GoesOnOverSignals) {
    EXPECT_EQ(zx::test::in_child([this] {
                  struct sigaction action {};  // without SA_RESTART
                  action.sa_handler = [](int) {};
                  sigaction(SIGALRM, &action, nullptr);
                  const pid_t other_end = fork();
                  if (other_end == 0) {
                      const int fd = (usleep(50000), open(fifo.c_str(), O_RDWR));
                      for (const char* part : {"ab", "cd"}) {
                          usleep(write(fd, part, 2) == 2 ? 50000 : 0);
                      }
                      _exit(0);
                  }
                  const itimerval often{{0, 2000}, {0, 2000}};
                  setitimer(ITIMER_REAL, &often, nullptr);
                  return std::to_string(wait());
              }),
              "4");
}

TEST_P(WaitingTest, LeavesNothingWhenItsThreadIsCancelled) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    const auto worker = [](void* test) -> void* {
        static_cast<WaitingTest*>(test)->wait();
        return nullptr;
    };
    const auto before = open_files();
    for (const bool is_open : {false, true}) {
        const int other_end = is_open ? open(fifo.c_str(), O_RDWR | O_CLOEXEC) : -1;
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, worker, this), 0);
        usleep(50000);
        pthread_cancel(thread);
        pthread_join(thread, nullptr);
        close(other_end);
        EXPECT_EQ(open_files(), before);
    }
}

INSTANTIATE_TEST_SUITE_P(All, WaitingTest, testing::Range(0, 3));

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
