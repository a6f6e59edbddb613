#include "zxsignal.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/reboot.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <vector>

#include "child.hpp"
#include "log_capture.hpp"

namespace {

std::vector<std::string> g_machine;  // what would have been done to this machine

}  // namespace

extern "C" {

[[gnu::visibility("default")]] void sync(void) noexcept {
    g_machine.emplace_back("sync");
}

[[gnu::visibility("default")]] int reboot(int what) noexcept {
    g_machine.emplace_back(what == RB_AUTOBOOT ? "restart" : what == RB_POWER_OFF ? "off" : "?");
    return 17;
}

[[gnu::visibility("default")]] int system(const char* command) {
    g_machine.emplace_back(command);
    return 256;
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SignalTest : public testing::Test {
protected:
    std::string lines() {
        std::string all;
        for (const std::string& line : log.take()) {
            all += line;
        }
        return all;
    }
    // What signals 1 to 31 do: caught, ignored, the default; a capital when they are blocked.
    static std::string dispositions() {
        sigset_t blocked;
        sigprocmask(SIG_BLOCK, nullptr, &blocked);
        std::string all;
        for (int number = 1; number < 32; ++number) {
            struct sigaction now {};
            sigaction(number, nullptr, &now);
            const char* const letters = sigismember(&blocked, number) == 1 ? "CID" : "cid";
            all += letters[now.sa_handler == zxsignal_innerapi_handler ? 0
                           : now.sa_handler == SIG_IGN                 ? 1
                                                                       : 2];
        }
        return all;
    }

    zx::test::LogCapture log;
};

TEST_F(SignalTest, NamesAreKnownUpTo31) {
    EXPECT_STREQ(zxsignal_desstring[0], "Unknow");
    EXPECT_STREQ(zxsignal_desstring[SIGABRT], "Abort  / IOT trap");
    EXPECT_STREQ(zxsignal_desstring[SIGCHLD], "Same as SIGCHLD / Child status has changed ");
    EXPECT_STREQ(zxsignal_desstring[SIGSYS], "Bad system call.");
    for (int number = 0; number < ZXSIGNAL_COUNT; ++number) {
        EXPECT_EQ(zxsignal_desstring[number] != nullptr, number < 32) << number;
    }
    for (const int unknown : {-1, 32, ZXSIGNAL_COUNT, INT32_MAX}) {
        zxsignal_innerapi_handler(unknown);
        EXPECT_THAT(log.take(), ElementsAre("[NOTICE][SIGNAL]Catch a signal(" +
                                            std::to_string(unknown) + "):Unknow\n"));
    }
}

TEST_F(SignalTest, CatchSetsWhatEverySignalDoes) {
    const std::string result = zx::test::in_child([this] {
        for (int number = 1; number < NSIG; ++number) {
            signal(number, SIG_DFL);
        }
        signal(SIGSYS, SIG_IGN);
        signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(zxsignal_api_catch(), SIG_IGN);
        EXPECT_EQ(zxsignal_api_catch(), zxsignal_innerapi_handler);
        EXPECT_EQ(dispositions(), "icccccccdcdcIcccdcdciiccccciccc");
        return lines() + (HasFailure() ? "failed" : "as wanted");
    });
    EXPECT_EQ(result, "as wanted") << "and nothing was logged";
}

TEST_F(SignalTest, CaughtSignalsAreLoggedAndTheProcessGoesOn) {
    const std::string result = zx::test::in_child([this] {
        zxsignal_api_catch();
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        close(ends[0]);
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
        for (const int number : {SIGHUP, SIGINT, SIGUSR1, SIGTERM, SIGTTIN}) {
            kill(getpid(), number);
        }
        EXPECT_EQ(errno, EPIPE) << "kept by the handler";
        return lines() + (HasFailure() ? "failed" : "");
    });
    EXPECT_EQ(result,
              "[NOTICE][SIGNAL]Catch a signal(2):Interrupt\n"
              "[NOTICE][SIGNAL]Catch a signal(10):User-defined signal 1\n"
              "[NOTICE][SIGNAL]Catch a signal(15):Termination\n");
}

TEST_F(SignalTest, PowerControlFlushesFirst) {
    EXPECT_EQ(zx_api_reboot(), 17);
    EXPECT_EQ(zx_api_forceReboot(), 256);
    EXPECT_EQ(zx_api_poweroff(), 17);
    EXPECT_THAT(g_machine, ElementsAre("sync", "restart", "sync", "reboot -f", "sync", "off"));
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
