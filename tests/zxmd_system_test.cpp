// Daemons, watchdogs, limits, housekeeping, facts about the host, tunables of its kernel. Nothing
// changes this machine: commands are noted, processes are the test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "child.hpp"
#include "log_capture.hpp"
#include "zxlog.h"
#include "zxmd.h"
#include "zxsysctl.h"

namespace {

std::vector<std::string> g_commands;
std::uint64_t g_now = 0;

}  // namespace

extern "C" {

// Returns how many there were.
[[gnu::visibility("default")]] int system(const char* command) {
    g_commands.emplace_back(command);
    return static_cast<int>(g_commands.size());
}

uint64_t zxlog_api_us(void) {
    return g_now;
}

}  // extern "C"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

class SystemTest : public testing::Test {
protected:
    SystemTest() {
        char name[] = "/tmp/zxmd_system_test_XXXXXX";
        dir = mkdtemp(name);
        g_commands.clear();
    }
    ~SystemTest() override { fs::remove_all(dir); }

    // Lines and commands so far, for a child to report.
    std::string story() {
        std::string all = HasFailure() ? "failed\n" : "";
        for (const std::string& line : log.take()) {
            all += line + "\n";
        }
        for (const std::string& command : g_commands) {
            all += "$ " + command + "\n";
        }
        return all;
    }

    zx::test::LogCapture log;
    std::string dir;
};

TEST_F(SystemTest, DaemonStandsAlone) {
    const pid_t session = getsid(0);
    const std::string result = zx::test::in_child([&] {
        umask(0);
        std::string facts = std::to_string(zxmd_api_startDaemon(dir.c_str()));
        facts += " " + fs::current_path().string() + " umask " + std::to_string(umask(0));
        for (const int fd : {0, 1, 2}) {
            facts += fcntl(fd, F_GETFD) == -1 ? " closed" : " open";
        }
        facts += getsid(0) == session || getsid(0) == getpid() ? " bad session" : "";
        return facts + story();
    });
    EXPECT_EQ(result, "0 " + dir + " umask 18 closed closed closed");
}

using Work = std::function<int32_t()>;

TEST_F(SystemTest, WatchdogRestartsItsWorker) {
    std::ofstream(dir + "/report");
    Work work = [this] {
        const std::string said = story();  // by the supervisor, until it made this worker
        if (said.empty()) {
            kill(getpid(), SIGKILL);
        }
        if (said.ends_with("has exited\n")) {
            std::ofstream(dir + "/report") << said;
            kill(getppid(), SIGKILL);
        }
        return 7;
    };
    const auto run = [](void* own) { return (*static_cast<Work*>(own))(); };
    std::ostringstream reported;
    EXPECT_EQ(zx::test::in_child([&] {
                  alarm(20);
                  return std::to_string(zxmd_api_watchdog(run, &work));
              }),
              "<ended by 9>");
    reported << std::ifstream(dir + "/report").rdbuf();
    EXPECT_THAT(
        reported.str(),
        testing::MatchesRegex(
            "\\[INFO\\]\\[ZXMD\\]I am father\n"
            "\\[ERROR\\]\\[ZXMD\\]child\\[[0-9][0-9]+\\] is end by signal:Kill, unblockable\n"
            "\\[INFO\\]\\[ZXMD\\]I am father\n"
            "\\[INFO\\]\\[ZXMD\\]child\\[[0-9][0-9]+\\] has exited\n"));
}

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

TEST_F(SystemTest, UserIsChangedForGood) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only an administrator may change the user";
    }
    // As an administrator; as one that keeps its capabilities; as a user with some of them, which
    // would have to be those of the thread sanitizer's own thread, too.
#ifdef __SANITIZE_THREAD__
    constexpr int kStarts[] = {0};
#else
    constexpr int kStarts[] = {0, 1, 2};
#endif
    for (const int start : kStarts) {
        const std::string result = zx::test::in_child([=, this] {
            const gid_t root = 0;
            EXPECT_EQ(setgroups(1, &root), 0);
            if (start > 0) {
                prctl(PR_SET_KEEPCAPS, 1);
            }
            if (start > 1) {
                EXPECT_EQ(setresuid(1000, 1000, 1000), 0);
                set_capabilities(1U << CAP_SETUID | 1U << CAP_SETGID);
            }
            EXPECT_EQ(zxmd_api_changeUser("nobody"), 0);
            gid_t groups[8];
            EXPECT_EQ(getgroups(8, groups), 1) << "without those of the administrator";
            EXPECT_EQ(groups[0], getegid());
            EXPECT_NE(getgid(), 0U);
            EXPECT_EQ(has_capabilities(), false);
            EXPECT_EQ(setuid(0), -1) << "there is no way back";
            EXPECT_EQ(zxmd_api_changeUser("root"), -2);
            return story();
        });
        EXPECT_EQ(result,
                  "[INFO][ZXMD]Changed process user id to 'nobody'\n"
                  "[ERROR][ZXMD]ERROR: can't change group id: setgid\n")
            << start;
    }
#ifndef __SANITIZE_THREAD__
    // Root is saved, to go back to; or the process is that user, with a capability of no use here.
    for (const uid_t saved : {0U, 65534U}) {
        EXPECT_EQ(zx::test::in_child([=, this] {
                      EXPECT_EQ(setgroups(0, nullptr), 0);
                      EXPECT_EQ(setresgid(65534, 65534, saved), 0);
                      prctl(PR_SET_KEEPCAPS, 1);
                      EXPECT_EQ(setresuid(65534, 65534, saved), 0);
                      set_capabilities(saved == 0 ? 0 : 1U << CAP_NET_RAW);
                      EXPECT_EQ(zxmd_api_changeUser("nobody"), 0);
                      EXPECT_EQ(has_capabilities(), false);
                      EXPECT_EQ(setuid(0) + setgid(0), -2);
                      return story();
                  }),
                  "[INFO][ZXMD]Changed process user id to 'nobody'\n")
            << saved;
    }
#endif
}

TEST_F(SystemTest, LimitsAreRaisedToTheirMost) {
    const std::string result = zx::test::in_child([this] {
        for (const auto resource : {RLIMIT_CORE, RLIMIT_NOFILE}) {
            const rlimit low{100, 200};
            EXPECT_EQ(setrlimit(resource, &low), 0);
        }
        EXPECT_EQ(zxmd_api_setRlimit(RLIMIT_CORE, "core"), RLIMIT_CORE);
        EXPECT_EQ(zxmd_api_setUlimit(), 1) << "what system() returned";
        EXPECT_EQ(sysconf(_SC_OPEN_MAX), 200);
        EXPECT_EQ(zxmd_api_setRlimit(999, nullptr), -1);
        return story();
    });
    EXPECT_EQ(result,
              "[INFO][ZXMD]set  core from (100) to max(200)\n"
              "[INFO][ZXMD]set  max_open_file from (100) to max(200)\n"
              "[ERROR][ZXMD]getrlimit  error\n"
              "$ echo 200 >  /proc/sys/fs/inotify/max_user_watches\n");
}

TEST_F(SystemTest, HousekeepingRunsItsCommandsInOrder) {
    EXPECT_EQ(zxmd_api_clearCache(3), 1);
    EXPECT_EQ(zxmd_api_clearSysLog(), 5);
    EXPECT_EQ(zxmd_api_clearAppLog(), 9);
    EXPECT_EQ(zxmd_api_cleanKernelUpgradeFile(), 10);
    EXPECT_EQ(story(),
              "$ echo 3  >  /proc/sys/vm/drop_caches\n"
              "$ rm -fr  /var/log/syslog.*     \n"
              "$ rm -fr  /var/log/*.log.*\n"
              "$ rm -fr  /var/log/*.log\n"
              "$ rm -fr  /var/log/*.err.*\n"
              "$ rm -fr  /var/log/zxcore/*\n"
              "$ rm -fr  /usr/local/zxsrs/objs//*.log\n"
              "$ rm -fr  /usr/local/nginx/*.log\n"
              "$ rm -fr  /usr/local/zxtomcat/logs//*.log\n"
              "$ apt -y autoremove\n");
}

TEST_F(SystemTest, SavesOnceAMinute) {
    g_now = 1'000'000'000;
    uint64_t last = 0;
    EXPECT_EQ(zxmd_api_timeToSave(&last), 1);
    g_now += 59'999'999;
    EXPECT_EQ(zxmd_api_timeToSave(&last), 0);
    g_now += 1;
    EXPECT_EQ(zxmd_api_timeToSave(&last), 1);
    g_now -= 1;
    EXPECT_EQ(zxmd_api_timeToSave(&last), 1) << "the clock was set back";
    EXPECT_EQ(last, g_now);
}

TEST_F(SystemTest, KnowsTheHost) {
    zxmd_api_setCpuFreq(2);
    EXPECT_EQ(story(), fs::exists("/usr/share/doc/cpufrequtils")
                           ? "$ cpufreq-set -c 2 -g  performance\n"
                           : "$ echo performance > /sys/bus/cpu/drivers/processor/cpu2/cpufreq/"
                             "scaling_governor\n");
    EXPECT_EQ(zxmd_api_isInstall("libc6"), fs::exists("/usr/share/doc/libc6") ? 1 : 0);
    EXPECT_EQ(zxmd_api_isInstallByBin("sh"), 1);
    for (const char* name : {"../doc/libc6", "..", ".", ""}) {
        EXPECT_EQ(zxmd_api_isInstall(name), 0) << name;
    }
    for (const char* name : {"../bin/sh", "..", "."}) {
        EXPECT_EQ(zxmd_api_isInstallByBin(name), 0) << name;
    }
    EXPECT_NE(zx::test::in_child([] {
                  const bool has_one = zx::test::own_disk("/usr/local/bin", "") &&
                                       fs::create_directory("/usr/local/bin/directory");
                  return std::to_string(has_one && zxmd_api_isInstallByBin("directory") != 0);
              }),
              "1");
}

TEST_F(SystemTest, AsksProgramsOfTheHost) {
    const auto stand_in = [this](const char* name, const char* script) {
        const std::string path = dir + "/" + name;
        std::ofstream(path) << "#!/bin/sh\n" << script;
        fs::permissions(path, fs::perms::owner_all);
    };
    setenv("PATH", (dir + ":/usr/bin:/bin").c_str(), 1);  // found first
    char out[64];
    stand_in("pstree", "echo \"$@\"");
    EXPECT_EQ(zxmd_api_pstree(42, out, sizeof out), 15);
    EXPECT_STREQ(out, "-p 42 -n -A -t\n");
    stand_in("inxi", "[ \"$*\" = -SG ] && echo Device: NVIDIA");
    EXPECT_EQ(zxmd_api_getDecEncMode(), 1);
    stand_in("inxi", "echo Device: other");
    EXPECT_EQ(zxmd_api_getDecEncMode(), 0);
    EXPECT_EQ(story(),
              "[INFO][ZXMD]Use hwaccel cuvid(nvidia)\n[INFO][ZXMD]Use sw decoder and encoder\n");
}

TEST_F(SystemTest, TunesTheKernel) {
    EXPECT_EQ(zxsysctl_api_setGw_rpfilter(1), 2);
    EXPECT_EQ(zxsysctl_api_setIgmpVersion(2), 3);
    EXPECT_EQ(
        story(),
        "[INFO][SYSCTL]rp_filter cmd:sysctl  -w   net.ipv4.conf.all.rp_filter=0 > /dev/null\n"
        "[INFO][SYSCTL]rp_filter cmd:sysctl  -w   net.ipv4.conf.default.rp_filter=0 > /dev/null\n"
        "[DEBUG][SYSCTL]config igmp version to version to 2\n"
        "$ sysctl  -w   net.ipv4.conf.all.rp_filter=0 > /dev/null\n"
        "$ sysctl  -w   net.ipv4.conf.default.rp_filter=0 > /dev/null\n"
        "$ echo 2 > /proc/sys/net/ipv4/conf/all/force_igmp_version\n");
    for (const std::string literal : {"br+lan", "v/7", "eth0.7", "-a~b#=@^"}) {
        EXPECT_GT(zxsysctl_api_setEth_rpfilter(literal.c_str(), 0), 0);
        EXPECT_EQ(g_commands.back(),
                  "sysctl  -w   net.ipv4.conf." + literal + ".rp_filter=0 > /dev/null");
    }
    log.take();
    for (const std::string& hostile : {std::string("eth0;reboot"), std::string("a b"),
                                       std::string(), std::string("a*"), std::string(230, 'x')}) {
        EXPECT_EQ(zxsysctl_api_setEth_rpfilter(hostile.c_str(), 0), -1);
        EXPECT_THAT(log.take(),
                    ElementsAre("[ERROR][SYSCTL]Name(" + hostile + ") is not fit for a command"));
    }
    EXPECT_EQ(g_commands.size(), 7U);
    int version = -1;
    std::ifstream("/proc/sys/net/ipv4/conf/all/force_igmp_version") >> version;
    EXPECT_EQ(zxsysctl_api_getIgmpVersion(), version);
}

TEST_F(SystemTest, PrintsOptionsEveryTimeAnew) {
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
