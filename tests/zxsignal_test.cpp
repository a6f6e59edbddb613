#include "zxsignal.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/reboot.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <fstream>
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
    // A line of /proc/self/status: a bit a signal, the lowest is signal 1's.
    static std::uint64_t signals(const std::string& field) {
        std::ifstream in("/proc/self/status");
        for (std::string name, value; in >> name && std::getline(in, value);) {
            if (name == field + ":") {
                return std::stoull(value, nullptr, 16);
            }
        }
        return ~std::uint64_t{0};
    }
    static std::uint64_t bits(const std::vector<int>& numbers) {
        std::uint64_t all = 0;
        for (const int number : numbers) {
            all |= std::uint64_t{1} << (number - 1);
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
        EXPECT_EQ(signals("SigIgn"), bits({1, 13, 21, 22, 28}));
        EXPECT_EQ(signals("SigCgt"), bits({2,  3,  4,  5,  6,  7,  8,  10, 12, 14, 15,
                                           16, 18, 20, 23, 24, 25, 26, 27, 29, 30, 31}));
        EXPECT_EQ(signals("SigBlk"), bits({13}));
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

TEST_F(SignalTest, CrashStillEndsTheProcess) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer handles the signal itself";
#endif
    const auto crash = [] {
        zxsignal_api_catch();
        raise(SIGSEGV);
        return std::string("went on");
    };
    EXPECT_EQ(zx::test::in_child(crash), "<ended by 11>");
}

TEST_F(SignalTest, PowerControlFlushesFirst) {
    EXPECT_EQ(zx_api_reboot(), 17);
    EXPECT_EQ(zx_api_forceReboot(), 256);
    EXPECT_EQ(zx_api_poweroff(), 17);
    EXPECT_THAT(g_machine, ElementsAre("sync", "restart", "sync", "reboot -f", "sync", "off"));
    EXPECT_THAT(log.take(), IsEmpty());
}

}  // namespace
