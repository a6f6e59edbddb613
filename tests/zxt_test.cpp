#include "zxt.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;

class CommandTest : public testing::Test {
protected:
    zx::test::LogCapture log;
};

TEST_F(CommandTest, TellsSuccessAndKeepsTheRedirection) {
    for (const auto& [line, result] : {std::pair{"true", 1}, {"false", 0}, {"kill -9 $$", 0}}) {
        char command[32];
        std::snprintf(command, sizeof command, "%s", line);
        EXPECT_EQ(zxt_innerapi_cmdRet(command), result) << line;
        EXPECT_EQ(command, std::string(line) + "  > /dev/null");
    }
    EXPECT_EQ(zxt_innerapi_cmdRet(nullptr), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXCOMMON_INNER]Error param ###cmd"));
}

TEST_F(CommandTest, ReadsThroughAPipe) {
    const struct {
        const char* command;
        uint32_t size;
        const char* info;  // of 8 bytes that were "xxxxxxxx", '.' for NUL
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
        std::replace(info.begin(), info.end(), '\0', '.');
        EXPECT_EQ(info, c.info);
        EXPECT_EQ(zxt_innerapi_cmdIsGrep(c.command), c.result > 0 ? 1 : 0);
    }
    EXPECT_EQ(zxt_innerapi_cmdReadByPipe(nullptr, nullptr, 4), -1);
    EXPECT_EQ(zxt_innerapi_cmdReadByPipe("echo", nullptr, 4), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXCOMMON_INNER]Param error####cmd",
                                        "[ERROR][ZXCOMMON_INNER]Param error####info"));
}

TEST_F(CommandTest, ReadsThroughAFileOfItsOwn) {
    char victim[] = "/tmp/zxt_victim_XXXXXX";
    close(mkstemp(victim));
    unlink("/tmp/zxcmd_info");
    ASSERT_EQ(symlink(victim, "/tmp/zxcmd_info"), 0);
    char info[8];
    EXPECT_EQ(zxt_innerapi_cmdReadByTmp("echo abc", info, sizeof info), 4);
    EXPECT_STREQ(info, "abc\n");
    struct stat status {};
    EXPECT_EQ(stat(victim, &status), 0);
    EXPECT_EQ(status.st_size, 0) << "the link was followed";
    unlink(victim);

    const std::string longest = "echo " + std::string(1001, 'x');
    EXPECT_EQ(zxt_innerapi_cmdReadByTmp(longest.c_str(), info, 2), 2);
    EXPECT_EQ(std::string(info, 3), "xxc");
    EXPECT_EQ(zxt_innerapi_cmdReadByTmp((longest + "x").c_str(), info, 2), -1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][ZXCOMMON_INNER]Command(" + longest + "x) is too long"));
}

TEST_F(CommandTest, KillsWhatACommandPrints) {
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    EXPECT_EQ(zxt_innerapi_kill("true"), 0);
    EXPECT_EQ(zxt_innerapi_kill(("echo #" + std::string(1007, 'x')).c_str()), -1);
    EXPECT_EQ(zxt_innerapi_kill(("echo " + std::to_string(child)).c_str()), 0);
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

}  // namespace
