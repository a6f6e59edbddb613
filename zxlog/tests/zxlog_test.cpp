// Every case logs in a child process of its own, which starts with an untouched library; the parent
// reads what arrived.
#include "zxlog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

namespace {

timespec g_wall{};  // what the wall clock shows when it is set

}  // namespace

// The wall clock of the program and of libzxlog.
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
using testing::StartsWith;

// Runs the body, which returns 0, in a child process that ends with nothing flushed.
void run_child(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(body());
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

class LogFile : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zxlog_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
        log = folder + "/log";
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    static std::string text_of(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string folder;
    std::string log;
};

TEST_F(LogFile, GoesToTheFirstStandardErrorAtLevelThree) {
    const std::string data = folder + "/data";
    run_child([&] {
        dup2(open(log.c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
        zxlog_innerapi_file("level %u\r\n", zxlog_api_getLoglevel());
        for (int fd = 0; fd <= 2; ++fd) {
            close(fd);
        }
        for (int fd = 0; fd <= 2; ++fd) {  // files of the program take their numbers
            open(data.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        }
        zxlog_innerapi_file("second\r\n");
        zxlog_api_setLoglevel(0);
        zxlog_innerapi_file("never\r\n");
        zxlog_innerapi_bufHex("never", "x", 1, "f", 1);
        return 0;
    });
    EXPECT_EQ(text_of(log), "level 3\r\nsecond\r\n");
    EXPECT_EQ(text_of(data), "");
}

// The library's descriptor for a file, or -1.
int descriptor_of(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        if (std::filesystem::read_symlink(entry, none) == path) {
            return std::stoi(entry.path().filename());
        }
    }
    return -1;
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
        close(fd);  // as somebody might
        zxlog_innerapi_file("new\r\n");
        return zxlog_api_setFile(folder.c_str()) == -1 && errno == EISDIR ? 0 : 3;
    });
    EXPECT_THAT(text_of(log + ".1"), StartsWith("old\r\n"));
    EXPECT_EQ(text_of(log), "moved\r\nnew\r\n");
}

void limit_files_to(rlim_t size) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = std::min(size, limit.rlim_max);
    setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(LogFile, CountsLinesForWhichThereIsNoRoom) {
    run_child([&] {
        signal(SIGXFSZ, SIG_IGN);
        zxlog_api_setFile(log.c_str());
        limit_files_to(100);
        errno = 4711;
        for (int i = 0; i < 3; ++i) {
            zxlog_innerapi_file("%038d\r\n", i);
        }
        const bool errno_kept = errno == 4711;
        const auto lose = [] {
            for (int i = 0; i < 200; ++i) {
                zxlog_innerapi_file("lost\r\n");
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
        return errno_kept ? 0 : 1;
    });
    const std::string zeros(37, '0');
    EXPECT_THAT(text_of(log),
                AllOf(StartsWith(zeros + "0\r\n" + zeros + "1\r\n" + zeros.substr(17) + "\r\n["),
                      EndsWith("][WARN][ZXLOG]401 lines could not be written\r\nafter\r\ntorn")));
    EXPECT_THAT(text_of(log + ".next"), EndsWith("]1 lines could not be written\r\nelsewhere\r\n"));
}

TEST_F(LogFile, LosesLinesButNotTheProcessWhenNobodyReads) {
    run_child([&] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
            return 1;
        }
        close(ends[0]);
        zxlog_innerapi_file("nobody reads this\r\n");
        sigset_t pending;
        sigpending(&pending);
        zxlog_api_setFile(log.c_str());
        zxlog_innerapi_file("after\r\n");
        return sigismember(&pending, SIGPIPE);
    });
    EXPECT_THAT(text_of(log), EndsWith("]1 lines could not be written\r\nafter\r\n"));
}

// The date and time of the C library and of the library.
bool is_local_time(std::int64_t sec) {
    g_wall = {sec, 999999999};
    tm t{};
    localtime_r(&sec, &t);
    char expected[64];
    strftime(expected, sizeof expected, "[%Y-%m-%d %H:%M:%S.999]", &t);
    const std::string got = zxlog_innerapi_logTime();
    EXPECT_EQ(got, expected) << sec;
    return got == expected && got == zxlog_api_curDTime("[%04d-%02d-%02d %02d:%02d:%02d.999]");
}

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

TEST(LocalTime, FollowsEveryZone) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    for (const char* zone :
         {"UTC", ":Asia/Kolkata", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
          "Africa/Casablanca", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
        SCOPED_TRACE(zone);
        run_child([&] {
            setenv("TZ", zone, 1);
            return execl(self.c_str(), "zxlog_test", "--gtest_brief=1",
                         "--gtest_filter=LocalTime.IsThatOfTheCLibrary", nullptr);
        });
    }
}

TEST(Texts, OfNumbersAndOfNothing) {
    char text[64];
    EXPECT_STREQ(zxlog_innerapi_num2str(text, UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(zxlog_api_sec2Time(1, nullptr), nullptr);
    EXPECT_EQ(zxlog_api_strCasestrNum(nullptr, "a", 0, 1), 0);
    EXPECT_EQ(zxlog_api_strCasestrNum("a", nullptr, 0, 1), 0);
}

TEST(Clocks, FireWhenTheIntervalHasPassedOrTimeWentBack) {
    const struct {
        std::int64_t now;
        int fires;
    } steps[] = {{5000, 1}, {5000, 0}, {5010, 0}, {5011, 1}, {5010, 1}};
    std::uint64_t last = 0;
    for (const auto& step : steps) {
        g_wall = {step.now, 7000};
        EXPECT_EQ(zxlog_api_timerAsyncSec(&last, 10), step.fires) << step.now;
        EXPECT_EQ(zxlog_api_us(), static_cast<std::uint64_t>(step.now) * 1000000 + 7);
    }
    g_wall = {};
}

}  // namespace
