#include "zxt.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "child.hpp"
#include "log_capture.hpp"

namespace {

bool g_hold_commands = false;
std::vector<std::string> g_commands;

}  // namespace

// This takes the place of the C library's function, also for the library under test.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    static const auto kReal = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"));
    if (!g_hold_commands) {
        return kReal(command);
    }
    g_commands.emplace_back(command);
    return 256;
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// "ab\0c" as "ab.c".
std::string dotted(std::string bytes) {
    std::replace(bytes.begin(), bytes.end(), '\0', '.');
    return bytes;
}

class InnerTest : public testing::Test {
protected:
    ~InnerTest() override { g_hold_commands = false; }

    zx::test::LogCapture log;
};

TEST_F(InnerTest, MakesAnEmptyDirectoryBelowThePath) {
    g_hold_commands = true;
    const auto expand = [this](const std::string& name, int result) {
        SCOPED_TRACE(name);
        g_commands.clear();
        char hls_path[700] = "old";
        EXPECT_EQ(zxt_innerapi_getHlsPath((name + ".m3u8").c_str(), "/v", hls_path), result);
        EXPECT_EQ(hls_path, result == 1 ? "/v/" + name : "old");
        return log.take();
    };
    // The longest name makes a command of 511 characters.
    for (const std::string& name :
         {std::string("live/chan1"), std::string("a..b"), std::string(240, 'x')}) {
        const std::string path = "/v/" + name;
        EXPECT_THAT(expand(name, 1), ElementsAre("[INFO][ZXCOMMON_INNER]-------hls_path:" + path));
        EXPECT_THAT(g_commands,
                    ElementsAre("rm -fr " + path, "mkdir  -p " + path + "  && chmod 777 " + path));
    }
    for (const std::string& name :
         {std::string(241, 'x'), std::string(600, 'x'), std::string("../x"), std::string("a/.."),
          std::string("/"), std::string("./."), std::string("a;id")}) {
        EXPECT_THAT(expand(name, 0), ElementsAre("[ERROR][ZXCOMMON_INNER]Path(/v/" + name +
                                                 ".m3u8) is not fit for a command"));
        EXPECT_THAT(g_commands, IsEmpty());
    }
    EXPECT_THAT(expand("/v/a", 0), IsEmpty()) << "already below the path";
}

TEST_F(InnerTest, TellsSuccessAndKeepsTheRedirection) {
    for (const auto& [line, result] : {std::pair{"true", 1}, {"false", 0}, {"kill -9 $$", 0}}) {
        char command[32];
        std::snprintf(command, sizeof command, "%s", line);
        EXPECT_EQ(zxt_innerapi_cmdRet(command), result) << line;
        EXPECT_EQ(command, std::string(line) + "  > /dev/null");
    }
}

TEST_F(InnerTest, ReadsThroughAPipe) {
    const struct {
        const char* command;
        uint32_t size;
        const char* info;  // the buffer, which was "xxxxxxxx"; '.' is a NUL
        int32_t result;
    } cases[] = {
        {"echo abc", 8, "abc\n....", 4},
        {"yes", 3, "y\nyxxxxx", 3},
        {"echo abc >&2", 4, "....xxxx", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        std::string info(8, 'x');
        EXPECT_EQ(zxt_innerapi_cmdReadByPipe(c.command, info.data(), c.size), c.result);
        EXPECT_EQ(dotted(info), c.info);
        EXPECT_EQ(zxt_innerapi_cmdIsGrep(c.command), c.result > 0 ? 1 : 0);
    }
}

// Another user puts a link to our file, or a file of their own, at the path whenever it is free.
void plant(const char* victim, const char* path) {
    for (;;) {
        if (symlink(victim, path) == 0) {
            usleep(100);
            unlink(path);
        }
        if (const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL, 0666); fd >= 0) {
            usleep(write(fd, "forged", 6) == 6 ? 100 : 0);
            close(fd);
            unlink(path);
        }
    }
}

TEST_F(InnerTest, ReadsThroughAFileOfItsOwn) {
    const std::string told = zx::test::in_child([]() -> std::string {
        if (!zx::test::own_disk("/tmp", "mode=1777")) {
            return "skip";
        }
        close(open("/tmp/victim", O_CREAT | O_WRONLY, 0600));
        const pid_t other = fork();
        if (other == 0) {
            _exit(setuid(65534) == 0 ? plant("/tmp/victim", "/tmp/zxcmd_info"), 0 : 1);
        }
        int wrong = 0;
        for (int turn = 0; turn < 300; ++turn) {
            char info[8];
            wrong += zxt_innerapi_cmdReadByTmp("echo abc", info, sizeof info) != 4 ||
                     std::string(info) != "abc\n";
        }
        kill(other, SIGKILL);
        return std::to_string(wrong) + " wrong, victim has " +
               std::to_string(std::filesystem::file_size("/tmp/victim"));
    });
    if (told == "skip") {
        GTEST_SKIP() << "only an administrator has a disk of its own";
    }
    EXPECT_EQ(told, "0 wrong, victim has 0");
}

TEST_F(InnerTest, RefusesACommandThatWouldBeCut) {
    char info[] = "abc";
    const std::string longest = "echo " + std::string(1001, 'x');
    EXPECT_EQ(zxt_innerapi_cmdReadByTmp(longest.c_str(), info, 2), 2);
    EXPECT_EQ(std::string(info, 3), "xxc");
    EXPECT_EQ(zxt_innerapi_cmdReadByTmp((longest + "x").c_str(), info, 2), -1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][ZXCOMMON_INNER]Command(" + longest + "x) is too long"));
}

TEST_F(InnerTest, KillsWhatACommandPrints) {
    EXPECT_EQ(zxt_innerapi_kill("true"), 0);
    EXPECT_EQ(zxt_innerapi_kill(("echo #" + std::string(1007, 'x')).c_str()), -1);
    EXPECT_EQ(zx::test::in_child([] {
                  zxt_innerapi_kill(("echo " + std::to_string(getpid())).c_str());
                  return std::string("survived");
              }),
              "<ended by 9>");
}

}  // namespace
