#include "zxsignal.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/reboot.h>

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

TEST(SignalTest, NamesAreKnownUpTo31) {
    EXPECT_STREQ(zxsignal_desstring[SIGABRT], "Abort  / IOT trap");
    EXPECT_STREQ(zxsignal_desstring[SIGCHLD], "Same as SIGCHLD / Child status has changed ");
    EXPECT_STREQ(zxsignal_desstring[SIGSYS], "Bad system call.");
    for (int number = 0; number < ZXSIGNAL_COUNT; ++number) {
        EXPECT_EQ(zxsignal_desstring[number] != nullptr, number < 32) << number;
    }
    zx::test::LogCapture log;
    for (const int unknown : {-1, 32, ZXSIGNAL_COUNT, INT32_MAX}) {
        zxsignal_innerapi_handler(unknown);
        EXPECT_THAT(log.take(), ElementsAre("[NOTICE][SIGNAL]Catch a signal(" +
                                            std::to_string(unknown) + "):Unknow\n"));
    }
    zxsignal_innerapi_sigMask(0);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][SIGNAL]pthread_sigmask failed:block sigpipe error",
                                        "[ERROR][SIGNAL]sigprocmask failed:block sigpipe error"));
}

// What signals 1 to 31 do: caught, ignored, the default; a capital when they are blocked.
std::string dispositions() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    std::string all;
    for (int number = 1; number < 32; ++number) {
        struct sigaction now {};
        sigaction(number, nullptr, &now);
        const char letter = now.sa_handler == zxsignal_innerapi_handler ? 'c'
                            : now.sa_handler == SIG_IGN                 ? 'i'
                                                                        : 'd';
        all += sigismember(&blocked, number) == 1 ? static_cast<char>(letter - 32) : letter;
    }
    return all;
}

// Caught signals are logged, and the process goes on.
TEST(SignalTest, CatchSetsWhatEverySignalDoes) {
    const auto work = [] {
        zx::test::LogCapture log;
        for (int number = 1; number < NSIG; ++number) {
            signal(number, number == SIGSYS || number == SIGCHLD ? SIG_IGN : SIG_DFL);
        }
        EXPECT_EQ(zxsignal_api_catch(), SIG_IGN);
        EXPECT_EQ(zxsignal_api_catch(), zxsignal_innerapi_handler);
        std::string said = dispositions() + "\n";
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        close(ends[0]);
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        for (const int number : {SIGHUP, SIGINT, SIGUSR1, SIGTERM, SIGTTIN}) {
            kill(getpid(), number);
        }
        EXPECT_EQ(errno, EPIPE) << "kept by the handler";
        for (const std::string& line : log.take()) {
            said += line;
        }
        return said + (testing::Test::HasFailure() ? "failed" : "");
    };
    EXPECT_EQ(zx::test::in_child(work),
              "icccccccdcdcIcccdcdciiccccciccc\n"
              "[NOTICE][SIGNAL]Catch a signal(2):Interrupt\n"
              "[NOTICE][SIGNAL]Catch a signal(10):User-defined signal 1\n"
              "[NOTICE][SIGNAL]Catch a signal(15):Termination\n");
}

TEST(SignalTest, PowerControlFlushesFirst) {
    EXPECT_EQ(zx_api_reboot(), 17);
    EXPECT_EQ(zx_api_forceReboot(), 256);
    EXPECT_EQ(zx_api_poweroff(), 17);
    EXPECT_THAT(g_machine, ElementsAre("sync", "restart", "sync", "reboot -f", "sync", "off"));
}

}  // namespace
