#include "zxt.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "child.hpp"

namespace {

// Somebody else puts a link to a file of ours, or a file of his own, wherever there is room.
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

TEST(CommandTest, ReadsThroughAFileOfItsOwn) {
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

}  // namespace
