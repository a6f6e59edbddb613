// Every case logs in a child process of its own, in which the library is still untouched. The
// parent reads the result.
#include "zxlog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "child.hpp"
#include "files.hpp"
#include "zxlock.h"
#include "zxmd.h"
#include "zxsignal.h"

namespace {

timespec g_wall{};  // what the wall clock shows, unless it is zero

}  // namespace

// This is the wall clock of the program and of libzxlog.
extern "C" int clock_gettime(clockid_t id, timespec* out) noexcept {
    if (id == CLOCK_REALTIME && g_wall.tv_sec != 0) {
        *out = g_wall;
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, id, out));
}

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using zx::test::content_of;

// Runs the body in a child process, which flushes nothing at its end. The body must return 0.
void run_child(const std::function<int()>& body) {
    EXPECT_EQ(zx::test::in_child([&] {
                  alarm(30);
                  const rlimit cpu{10, 20};  // in case the alarm is caught
                  setrlimit(RLIMIT_CPU, &cpu);
                  return std::to_string(body());
              }),
              "0");
}

class LogFile : public testing::Test {
protected:
    const zx::test::Folder own{};
    const std::string& folder = own.path();
    const std::string log = folder + "/log";
};

// The library's descriptor for a file, or -1.
int descriptor_of(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        const int fd = std::stoi(entry.path().filename());
        if (fd > STDERR_FILENO && std::filesystem::read_symlink(entry, none) == path) {
            return fd;
        }
    }
    return -1;
}

TEST_F(LogFile, OfADaemonGoesToTheFirstStandardErrorAtLevelThree) {
    const std::string data = folder + "/data";
    run_child([&] {
        const int file = open(log.c_str(), O_WRONLY | O_CREAT, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
        const std::uint32_t level = zxlog_api_getLoglevel();
        zxlog_api_setLoglevel(0);
        zxmd_api_startDaemon("/");         // nothing was logged before
        for (int fd = 0; fd <= 2; ++fd) {  // files of the program get these numbers
            open(data.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        }
        zxlog_innerapi_file("never\r\n");
        zxlog_innerapi_bufHex("never", "x", 1, "f", 1);
        zxlog_api_setLoglevel(level);
        zxlog_innerapi_file("level %u\r\n", level);
        close(descriptor_of(log));
        zxlog_innerapi_file("lost\r\n");
        return 0;
    });
    EXPECT_EQ(content_of(log), "level 3\r\n");
    EXPECT_EQ(content_of(data), "");
}

TEST_F(LogFile, FollowsItsNameWithOneDescriptor) {
    run_child([&] {
        if (chdir(folder.c_str()) != 0 || zxlog_api_setFile("log") != 0 || chdir("/") != 0) {
            return 1;
        }
        zxlog_innerapi_file("old\r\n");
        const int fd = descriptor_of(log);
        std::filesystem::rename(log, log + ".1");
        for (int step = 0; step < 100 && !std::filesystem::exists(log); ++step) {
            usleep(20000);
            zxlog_innerapi_file("moved\r\n");
        }
        if (descriptor_of(log) != fd || fcntl(fd, F_GETFD) != FD_CLOEXEC) {
            return 2;
        }
        close(fd);  // as another part of the program might
        zxlog_innerapi_file("new\r\n");
        return zxlog_api_setFile(folder.c_str()) == -1 && errno == EISDIR ? 0 : 3;
    });
    EXPECT_THAT(content_of(log + ".1"), StartsWith("old\r\n"));
    EXPECT_EQ(content_of(log), "moved\r\nnew\r\n");
}

void limit_files_to(rlim_t size) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(size, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(LogFile, ReportsTornLinesAndLinesOfSeveralThreads) {
    run_child([&] {
        zxlog_api_setFile(log.c_str());
        limit_files_to(100);
        const auto lose = [] {
            for (int i = 0; i < 200; ++i) {
                zxlog_innerapi_file("%038d\r\n", i);
            }
        };
        std::thread other(lose);
        lose();
        other.join();
        limit_files_to(RLIM_INFINITY);
        zxlog_innerapi_file("after\r\n");
        limit_files_to(std::filesystem::file_size(log) + 4);
        zxlog_innerapi_file("torn, too\r\n");
        limit_files_to(RLIM_INFINITY);
        zxlog_api_setFile((log + ".next").c_str());
        zxlog_innerapi_file("elsewhere\r\n");
        return 0;
    });
    EXPECT_THAT(content_of(log),
                AllOf(HasSubstr("\r\n" + std::string(20, '0') + "\r\n["),
                      EndsWith("][WARN][ZXLOG]398 lines could not be written\r\nafter\r\ntorn")));
    EXPECT_THAT(content_of(log + ".next"),
                EndsWith("]1 lines could not be written\r\nelsewhere\r\n"));
}

// A file that takes no lines, for descriptor 1 or 2.
struct Trouble {
    const char* name;
    std::function<int(const std::string& folder)> open;  // -1: closed
};

const Trouble kTroubles[] = {
    {"a full disk", [](const std::string&) { return open("/dev/full", O_WRONLY); }},
    {"a full file",
     [](const std::string& folder) {
         const std::string path = folder + "/full";
         std::ofstream(path) << std::string(100, '.');
         limit_files_to(100);
         return open(path.c_str(), O_WRONLY | O_APPEND);
     }},
    {"a closed descriptor", [](const std::string&) { return -1; }},
    {"a pipe without a reader",
     [](const std::string&) {
         int ends[2];
         return pipe(ends) == 0 && close(ends[0]) == 0 ? ends[1] : -2;
     }},
    {"a full pipe",
     [](const std::string&) {
         int ends[2];
         const bool made = pipe2(ends, O_NONBLOCK) == 0;
         while (made && write(ends[1], "full", 4) > 0) {
         }
         return made ? ends[1] : -2;
     }},
};

int g_signals = 0;

// What a program may have done with the signals of its writes.
const std::function<void()> kHabits[] = {
    [] {},
    [] {
        signal(SIGXFSZ, SIG_IGN);
        signal(SIGPIPE, SIG_IGN);
    },
    [] {
        signal(SIGXFSZ, [](int) { ++g_signals; });
        signal(SIGPIPE, [](int) { ++g_signals; });
    },
    [] {
        zxsignal_api_catch();
        raise(SIGPIPE);  // stays pending, as after a write to a closed socket
    },
};

// Logs two lines into the trouble, and one after it is over. Returns 0 when nothing but the two
// lines was lost.
int lose_lines(const Trouble& trouble, const std::string& folder, int target) {
    const bool to_log = target == STDERR_FILENO;
    zxlog_api_setFile(to_log ? nullptr : "/dev/null");
    zxlog_api_setStdPrint(to_log ? 0 : 1);
    sigset_t before{};
    sigset_t pending_before{};
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    sigpending(&pending_before);
    const int bad = trouble.open(folder);
    if (bad == -1) {
        close(target);
    } else if (dup2(bad, target) != target) {
        return 1;
    }
    if (to_log && bad != -1 && zxlog_api_setFile(nullptr) != 0) {
        return 2;
    }
    errno = 4711;
    for (int i = 0; i < 2; ++i) {
        zxlock_api_init(nullptr, "lost");
    }
    const bool errno_kept = errno == 4711;
    limit_files_to(RLIM_INFINITY);
    if (dup2(open((folder + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), target) < 0 ||
        (to_log && zxlog_api_setFile(nullptr) != 0)) {
        return 3;
    }
    zxlock_api_init(nullptr, "after");
    sigset_t after{};
    sigset_t pending{};
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    sigpending(&pending);
    const bool no_signal = g_signals == 0 &&
                           std::memcmp(&pending_before, &pending, sizeof pending) == 0 &&
                           std::memcmp(&before, &after, sizeof before) == 0;
    return errno_kept && no_signal ? 0 : 4;
}

TEST_F(LogFile, AndEchoLoseLinesAndReportThemInEveryTrouble) {
    for (const Trouble& trouble : kTroubles) {
        for (const auto& habit : kHabits) {
            for (const int target : {STDOUT_FILENO, STDERR_FILENO}) {
                SCOPED_TRACE(std::string(trouble.name) + ", habit " +
                             std::to_string(&habit - kHabits) + ", descriptor " +
                             std::to_string(target));
                std::filesystem::remove(log);
                run_child([&] {
                    close(target);  // without a file, the log begins with the trouble
                    habit();
                    return lose_lines(trouble, folder, target);
                });
                const std::string text = content_of(log);
                EXPECT_THAT(text, HasSubstr("[WARN][ZXLOG]2 lines could not be written\r\n"));
                EXPECT_THAT(text, HasSubstr("\r\n" + std::string(target == 1 ? "\033" : "[")));
                EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2) << text;
            }
        }
    }
}

TEST_F(LogFile, LosesNothingWhenAWriteIsInterrupted) {
    run_child([&] {
        int ends[2];
        std::string got(1U << 20U, '\0');
        if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
            return 1;
        }
        struct sigaction action {};
        action.sa_handler = [](int) {};  // without SA_RESTART
        sigaction(SIGUSR1, &action, nullptr);
        const std::string line(1U << 18U, 'x');  // more than a pipe takes at once
        std::atomic<bool> ended{false};
        std::thread reader([&, writer = pthread_self()] {
            std::size_t size = 0;
            while (!ended || size < line.size()) {
                pthread_kill(writer, SIGUSR1);
                usleep(2000);
                const ssize_t part = read(ends[0], got.data() + size, 30000);
                size += part > 0 ? static_cast<std::size_t>(part) : 0;
            }
            got.resize(size);
        });
        zxlog_innerapi_file("%s", line.c_str());
        ended = true;
        reader.join();
        return got == line ? 0 : 2;
    });
}

// True when the library and the C library have the same date and time.
bool is_local_time(std::int64_t sec) {
    g_wall = {sec, 999999999};
    tm t{};
    localtime_r(&sec, &t);
    char expected[64];
    strftime(expected, sizeof expected, "[%Y-%m-%d %H:%M:%S.999]", &t);
    const std::string got = zxlog_innerapi_logTime();
    EXPECT_EQ(got, expected) << sec;
    return got == expected;
}

// Runs once for each zone, each in its own process: the log reads the zone when it is loaded.
TEST(LocalTime, IsThatOfTheCLibrary) {
    constexpr std::int64_t kHour = 3600;
    const std::int64_t now = time(nullptr) / kHour * kHour;
    bool same = true;
    for (std::int64_t hour = -10; same && hour < 3 * 366 * 24; ++hour) {
        same = is_local_time(now + hour * kHour) && is_local_time(now + hour * kHour - 1);
    }
    for (std::int64_t day = 0; same && day < 14 * 365; day += 3) {
        same = is_local_time(now + day * 24 * kHour);
    }
    g_wall = {};
    EXPECT_TRUE(same);
}

TEST(LocalTime, FollowsAChangeOfTheZone) {
    g_wall = {1714552200, 0};
    for (const auto& [zone, expected] : {std::pair{"UTC", "2024-05-01 08:30"},
                                         {"IST-5:30", "2024-05-01 14:00"},
                                         {"XXX12", "2024-04-30 20:30"}}) {
        setenv("TZ", zone, 1);
        EXPECT_STREQ(zxlog_api_curDTime("%04d-%02d-%02d %02d:%02d"), expected);
    }
    unsetenv("TZ");
    g_wall = {};
}

TEST(Texts, OfTheLargestNumber) {
    char text[64];
    EXPECT_STREQ(zxlog_innerapi_num2str(text, UINT64_MAX), "18446744073709551615");
}

TEST(Clocks, FireWhenTheIntervalHasPassedOrTimeWentBack) {
    const struct {
        std::int64_t now;
        int fires, saves;
    } steps[] = {{5000, 1, 1}, {5000, 0, 0}, {5010, 0, 0}, {5011, 1, 0},
                 {5010, 1, 0}, {5059, 1, 0}, {5060, 0, 1}, {5059, 0, 1}};
    std::uint64_t last_fired = 0, last_saved = 0;
    for (const auto& step : steps) {
        g_wall = {step.now, 7000};
        EXPECT_EQ(zxlog_api_timerAsyncSec(&last_fired, 10), step.fires) << step.now;
        EXPECT_EQ(zxmd_api_timeToSave(&last_saved), step.saves) << step.now;
        EXPECT_EQ(zxlog_api_us(), static_cast<std::uint64_t>(step.now) * 1000000 + 7);
    }
    g_wall = {};
}

}  // namespace
