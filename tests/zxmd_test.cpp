#include "zxmd.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>

#include "child.hpp"
#include "files.hpp"
#include "log_capture.hpp"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

// Calls that wait for the other end of a FIFO, and return when four bytes are moved.
class WaitingTest : public testing::TestWithParam<int> {
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

    zx::test::LogCapture log;
    const zx::test::Folder folder{};
    const std::string fifo = folder.path() + "/fifo";
    const int made = mkfifo(fifo.c_str(), 0600);
};

TEST_P(WaitingTest, KeepsWaitingWhenSignalsArrive) {
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

// Cancels a call while it waits for the other end. The tests with injected faults (tests/faults)
// cancel it at its other cancellation points.
TEST_P(WaitingTest, CanBeCancelled) {
#ifdef ZX_ASAN
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    const auto before = zx::test::open_descriptors();
    std::thread waiting([this] { wait(); });
    usleep(50000);
    pthread_cancel(waiting.native_handle());
    waiting.join();
    EXPECT_EQ(zx::test::open_descriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(All, WaitingTest, testing::Range(0, 3));

void set_capabilities(std::uint32_t wanted) {
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct sets[2] = {{wanted, wanted, wanted}};
    EXPECT_EQ(syscall(SYS_capset, &head, sets), 0);
    for (unsigned i = 0; i < 32; ++i) {
        if ((wanted & 1U << i) != 0) {
            EXPECT_EQ(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, i, 0, 0), 0);
        }
    }
}

bool has_capabilities() {
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[2]{};
    syscall(SYS_capget, &head, sets);
    return (sets[0].permitted | sets[0].inheritable | sets[1].permitted) != 0;
}

TEST(UserTest, IsChangedForGood) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only an administrator may change the user";
    }
    constexpr uid_t kNobody = 65534;
    const struct {
        uid_t user, saved;
        bool keeps_capabilities;
        std::uint32_t capabilities;
    } starts[] = {
        {0, 0, false, 0},  // an administrator
#ifndef ZX_TSAN            // the sanitizer's thread would need the capabilities, too
        {0, 0, true, 0},
        {1000, 1000, true, 1U << CAP_SETUID | 1U << CAP_SETGID},
        {kNobody, 0, true, 0},                        // could go back to root
        {kNobody, kNobody, true, 1U << CAP_NET_RAW},  // a capability that does not help here
#endif
    };
    for (const auto& start : starts) {
        const std::string result = zx::test::in_child([&] {
            zx::test::LogCapture log;
            const std::size_t count = start.user == kNobody ? 0 : 1;
            gid_t groups[8] = {0};
            EXPECT_EQ(setgroups(count, groups), 0);
            EXPECT_EQ(setresgid(start.user, start.user, start.saved), 0);
            prctl(PR_SET_KEEPCAPS, start.keeps_capabilities ? 1 : 0);
            EXPECT_EQ(setresuid(start.user, start.user, start.saved), 0);
            if (start.user != 0) {
                set_capabilities(start.capabilities);
            }
            EXPECT_EQ(zxmd_api_changeUser("nobody"), 0);
            EXPECT_EQ(getgroups(8, groups), count) << "without those of the administrator";
            EXPECT_EQ(count == 0 || groups[0] == kNobody, true);
            EXPECT_EQ(getgid(), kNobody);
            EXPECT_EQ(has_capabilities(), false);
            EXPECT_EQ(setuid(0) + setgid(0), -2) << "there is no way back";
            EXPECT_EQ(zxmd_api_changeUser("root"), -2);
            EXPECT_THAT(log.take(),
                        ElementsAre("[INFO][ZXMD]Changed process user id to 'nobody'",
                                    "[ERROR][ZXMD]ERROR: can't change group id: setgid"));
            return std::string(testing::Test::HasFailure() ? "failed" : "changed");
        });
        EXPECT_EQ(result, "changed") << &start - starts;
    }
}

TEST(HostTest, ADirectoryIsNoProgram) {
    EXPECT_NE(zx::test::in_child([] {
                  const bool has_one = zx::test::own_disk("/usr/local/bin", "") &&
                                       fs::create_directory("/usr/local/bin/directory");
                  return std::to_string(has_one && zxmd_api_isInstallByBin("directory") != 0);
              }),
              "1");
}

TEST(OptionTest, StartsOverInEveryCall) {
    char texts[][8] = {"program", "-a", "-bvalue", "-c", "rest"};
    char* argv[] = {texts[0], texts[1], texts[2], texts[3], texts[4], nullptr};
    opterr = 0;
    for (int turn = 0; turn < 2; ++turn) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(zxmd_api_parseOpt(5, argv, "ab:"), 3);
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "optopt=a, optarg=\nresult =a,\n"
                  "optopt=b, optarg=value\nresult =b,\n"
                  "optopt=c, optarg=\nresult =?,\n");
    }
}

}  // namespace
