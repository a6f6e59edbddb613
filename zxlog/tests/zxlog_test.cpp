// Every case logs in a child process of its own, which starts with an untouched library; the parent
// reads what arrived.
#include "zxlog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

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

using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned kPatience = 30;  // seconds until a child counts as hung

// What waitpid() says: 0 when the body returned 0.
int run_child(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kPatience);
        _exit(body());
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

class LogFile : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zxlog_test.XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder_ = name;
        log = folder_ + "/log";
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    static std::string text_of(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    // The file's lines without their ends; a line without an end says so.
    static std::vector<std::string> lines_of(const std::string& path) {
        std::vector<std::string> lines;
        const std::string text = text_of(path);
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find("\r\n", at);
            lines.push_back(end != std::string::npos ? text.substr(at, end - at)
                                                     : text.substr(at) + "<no line end>");
            at = end != std::string::npos ? end + 2 : text.size();
        }
        return lines;
    }

    int stderr_to(const std::string& path) {
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(fd, STDERR_FILENO);
        return close(fd);
    }

    std::string folder_;
    std::string log;
};

TEST_F(LogFile, HoldsTheLineOfAProcessThatIsKilled) {
    const int status = run_child([&] {
        zxlog_api_setFile(log.c_str());
        zxlog_innerapi_file("last words\r\n");
        return raise(SIGKILL);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(lines_of(log), ElementsAre("last words"));
}

TEST_F(LogFile, GoesToTheFirstStandardErrorAtLevelThree) {
    const std::string data = folder_ + "/data";
    EXPECT_EQ(run_child([&] {
                  stderr_to(log);
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
              }),
              0);
    EXPECT_THAT(lines_of(log), ElementsAre("level 3", "second"));
    EXPECT_EQ(text_of(data), "");
}

// The library's descriptor for a file, or -1.
int descriptor_of(const std::string& path) {
    struct stat wanted;
    struct stat st;
    for (int fd = 3; stat(path.c_str(), &wanted) == 0 && fd < 2000; ++fd) {
        if (fstat(fd, &st) == 0 && st.st_ino == wanted.st_ino && st.st_dev == wanted.st_dev) {
            return fd;
        }
    }
    return -1;
}

TEST_F(LogFile, OpensItsDescriptorAgainWhenSomebodyClosedIt) {
    EXPECT_EQ(run_child([&] {
                  zxlog_api_setFile(log.c_str());
                  zxlog_innerapi_file("first\r\n");
                  const int fd = descriptor_of(log);
                  if (fd < 3 || fcntl(fd, F_GETFD) != FD_CLOEXEC) {
                      return 1;
                  }
                  close(fd);
                  zxlog_innerapi_file("second\r\n");
                  return zxlog_api_setFile(folder_.c_str()) == -1 && errno == EISDIR ? 0 : 2;
              }),
              0);
    EXPECT_THAT(lines_of(log), ElementsAre("first", "second"));
}

TEST_F(LogFile, FollowsItsNameWhenTheFileIsMovedAway) {
    EXPECT_EQ(
        run_child([&] {
            if (chdir(folder_.c_str()) != 0 || zxlog_api_setFile("log") != 0 || chdir("/") != 0) {
                return 1;
            }
            zxlog_innerapi_file("old\r\n");
            const int fd = descriptor_of(log);
            std::filesystem::rename(log, log + ".1");
            const auto moved = std::chrono::steady_clock::now();
            for (int i = 0; !std::filesystem::exists(log); ++i) {
                usleep(20000);
                zxlog_innerapi_file("%d\r\n", i);
            }
            const auto waited = std::chrono::steady_clock::now() - moved;
            return descriptor_of(log) == fd && waited < std::chrono::seconds(2) ? 0 : 2;
        }),
        0);
    auto lines = lines_of(log + ".1");
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0], "old");
    EXPECT_THAT(lines_of(log), ElementsAre(std::to_string(lines.size() - 1)));
}

TEST_F(LogFile, CountsLinesForWhichThereIsNoRoom) {
    EXPECT_EQ(run_child([&] {
                  signal(SIGXFSZ, SIG_IGN);
                  rlimit limit{};
                  getrlimit(RLIMIT_FSIZE, &limit);
                  const rlimit small{100, limit.rlim_max};
                  zxlog_api_setFile(log.c_str());
                  setrlimit(RLIMIT_FSIZE, &small);
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
                  setrlimit(RLIMIT_FSIZE, &limit);
                  zxlog_innerapi_file("after\r\n");

                  const rlimit larger{std::filesystem::file_size(log) + 4, limit.rlim_max};
                  setrlimit(RLIMIT_FSIZE, &larger);
                  zxlog_innerapi_file("torn, too\r\n");
                  setrlimit(RLIMIT_FSIZE, &limit);
                  zxlog_api_setFile((log + ".next").c_str());
                  zxlog_innerapi_file("elsewhere\r\n");
                  return errno_kept ? 0 : 1;
              }),
              0);
    EXPECT_THAT(lines_of(log), ElementsAre(std::string(37, '0') + "0", std::string(37, '0') + "1",
                                           std::string(20, '0'),
                                           HasSubstr("][WARN][ZXLOG]401 lines could not be wri"),
                                           "after", "torn<no line end>"));
    EXPECT_THAT(lines_of(log + ".next"), ElementsAre(HasSubstr("]1 lines could"), "elsewhere"));
}

TEST_F(LogFile, LosesLinesButNotTheProcessWhenNobodyReads) {
    EXPECT_EQ(run_child([&] {
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
              }),
              0);
    EXPECT_THAT(lines_of(log), ElementsAre(HasSubstr("]1 lines could not be written"), "after"));
}

TEST_F(LogFile, KeepsLinesWholeAndTerminalsSafe) {
    const struct {
        std::string body;
        std::string written;
    } cases[] = {
        {"tab\tand \xc3\xa4", "tab\tand \xc3\xa4"},
        {"\x1b[31m\x07\x7f", "\\x1b[31m\\x07\\x7f"},
        {std::string(2040, 'a'), std::string(2040, 'a')},
        {std::string(2045, 'b') + "\x01", std::string(2045, 'b') + "\\x01"},
        {std::string(10000, 'c'), std::string(10000, 'c')},
        {std::string(100000, 'd') + "\x1b", std::string(100000, 'd') + "\\x1b"},
        {"", ""},
    };
    EXPECT_EQ(run_child([&] {
                  zxlog_api_setFile(log.c_str());
                  for (const auto& c : cases) {
                      zxlog_innerapi_file("%s\r\n", c.body.c_str());
                  }
                  const wchar_t unknown[] = {static_cast<wchar_t>(0x20ac), 0};
                  zxlog_innerapi_file("%ls\r\n", unknown);
                  return 0;
              }),
              0);
    auto lines = lines_of(log);
    ASSERT_EQ(lines.size(), std::size(cases) + 1);
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(lines[i], cases[i].written) << i;
    }
    EXPECT_EQ(lines.back(), "%ls");
}

// One line through the library and through the C library, which must read the same.
#define PRINT_BOTH(fmt, ...)                                       \
    do {                                                           \
        std::snprintf(text, sizeof text, fmt "\r\n", __VA_ARGS__); \
        expected += text;                                          \
        zxlog_innerapi_file(fmt "\r\n", __VA_ARGS__);              \
    } while (0)

TEST_F(LogFile, PrintsLikeTheCLibrary) {
    const auto print = [&] {
        char text[4096];
        std::string expected;
        const char* volatile none = nullptr;
        const std::string long_text(2000, 'x');
        zxlog_api_setFile(log.c_str());
        PRINT_BOTH("%d %i %u %x", INT_MIN, INT_MAX, UINT_MAX, 0xbeefU);
        PRINT_BOTH("%ld %lld %lu %llx", LONG_MIN, LLONG_MIN, ULONG_MAX, ULLONG_MAX);
        PRINT_BOTH("%s|%.2s|%.*s|%.128s|%.s|%.*s", "1", "two", 1, "three", "four", "5", -1, "six");
        PRINT_BOTH("%c%%%5d|%-4s|%04x|%+d|%.3f|%.3d", 'c', 42, "ab", 0xaU, 7, 0.5, 7);
        PRINT_BOTH("%s %.3s", none, none);
        PRINT_BOTH("%hhd %#x %td %zu", static_cast<signed char>(44), 255U, std::ptrdiff_t{-3},
                   std::size_t{0});
        for (int pad = 35; pad < 50; ++pad) {  // where the stack's part of a line ends
            PRINT_BOTH("%s%.*s%d", long_text.c_str(), pad, long_text.c_str(), 12345);
        }
        return text_of(log) == expected ? 0 : 1;
    };
    EXPECT_EQ(run_child(print), 0) << text_of(log);
}

TEST_F(LogFile, DumpsBuffersInRowsOfSixteen) {
    EXPECT_EQ(run_child([&] {
                  zxlog_api_setFile(log.c_str());
                  zxlog_innerapi_bufHex("packet", "0123456789abcdef\x1b", 17, "func", 12);
                  return 0;
              }),
              0);
    const auto lines = lines_of(log);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], HasSubstr("[HEX][func 12]packet: 17 bytes"));
    EXPECT_THAT(lines[1], HasSubstr("00000000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  "
                                    "0123456789abcdef"));
    EXPECT_THAT(lines[2], HasSubstr("00000010: 1b "));
}

// A date and time as the C library has it and as the library has it.
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
    for (const char* zone :
         {"UTC", ":Asia/Kolkata", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe",
          "Africa/Casablanca", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
        SCOPED_TRACE(zone);
        EXPECT_EQ(run_child([&] {
                      setenv("TZ", zone, 1);
                      return execl("/proc/self/exe", "zxlog_test", "--gtest_brief=1",
                                   "--gtest_filter=LocalTime.IsThatOfTheCLibrary", nullptr);
                  }),
                  0);
    }
}

TEST(Texts, OfNumbersAndDurations) {
    char text[64];
    EXPECT_STREQ(zxlog_innerapi_num2str(text, UINT64_MAX), "18446744073709551615");
    EXPECT_STREQ(zxlog_innerapi_bitByte64(text, 1, 512, "KB"), "1.50KB");
    EXPECT_STREQ(zxlog_innerapi_bitByte64(text, 1, 10, "KB"), "1.00KB");
    EXPECT_STREQ(zxlog_innerapi_bitByte64(text, 1, 1023, "KB"), "1.99KB");
    EXPECT_STREQ(zxlog_innerapi_bitByte32(text, 7, 0, "MB"), "7MB");
    EXPECT_STREQ(zxlog_api_us2time(999999, text, ".%d", "%d(s).%d.%d"), ".999999");
    EXPECT_STREQ(zxlog_api_us2time(61002003, text, ".%d", "%d(s).%d.%d"), "61(s).2.3");
    EXPECT_STREQ(zxlog_api_sec2Time(86399, text), "23:59:59");
    EXPECT_STREQ(zxlog_api_sec2Time(2 * 86400 + 3661, text), "2_01:01:01");
    EXPECT_EQ(zxlog_api_sec2Time(1, nullptr), nullptr);
}

TEST(Texts, CountOccurrences) {
    const struct {
        const char *text, *part;
        int max, match_case, count;
    } cases[] = {
        {"THREAD,FIFO_STRU", "FIFO_STRU", 1, 1, 1},
        {"THREAD,FIFO_STRU", "fifo_stru", 1, 1, 0},
        {"THREAD,FIFO_STRU", "fifo_stru", 1, 0, 1},
        {"aAaaa", "aa", 0, 0, 2},
        {"aaaa", "a", 3, 1, 3},
        {"aaaa", "aaaaa", 0, 0, 0},
        {"", "a", 0, 1, 0},
        {"a", "", 0, 1, 0},
        {nullptr, "a", 0, 1, 0},
        {"a", nullptr, 0, 1, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(zxlog_api_strCasestrNum(c.text, c.part, c.max, c.match_case), c.count)
            << (c.text != nullptr ? c.text : "-") << " " << (c.part != nullptr ? c.part : "-");
    }
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
    EXPECT_EQ(last, 5010U);
    g_wall = {};
}

}  // namespace
