#include "zxmd.h"

#include <dlfcn.h>
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

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "child.hpp"
#include "files.hpp"
#include "log_capture.hpp"

namespace {

std::vector<std::string> g_commands;
bool g_breaks_copies = false;

}  // namespace

// This takes the place of the C library's function, also for the library under test.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    g_commands.emplace_back(command);
    if (const std::string text = command; g_breaks_copies && text.starts_with("cp ")) {
        const std::size_t end = text.find("  > "), begin = text.rfind(' ', end - 1) + 1;
        return truncate(text.substr(begin, end - begin).c_str(), 1) == 0 ? 256 : 0;
    }
    static const auto kReal = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "system"));
    return kReal(command);
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using zx::test::content_of;

class FileTest : public testing::Test {
protected:
    FileTest() { g_commands.clear(); }

    std::string put(const char* name, const std::string& content) {
        std::ofstream(dir + "/" + name) << content;
        return dir + "/" + name;
    }

    zx::test::LogCapture log;
    const zx::test::Folder folder;
    const std::string dir = folder.path();
    char data[16] = "0123456789";
};

TEST_F(FileTest, ReadsAndTerminatesWhereThereIsRoom) {
    const std::string path = put("five", "abcde");
    const struct {
        int32_t (*read)(const char*, void*, uint32_t);
        uint32_t len;
        std::string buf;  // the buffer, which was "xxxxxxxx"
        int32_t result;
    } cases[] = {
        {zxmd_api_read, 8, {"abcde\0xx", 8}, 5}, {zxmd_api_read, 5, "abcdexxx", 5},
        {zxmd_api_read2, 2, "abxxxxxx", 2},      {zxmd_api_read3, 8, "abcdexxx", 5},
        {zxmd_api_read3, 3, "abcxxxxx", 3},
    };
    for (const auto& c : cases) {
        std::string buf(8, 'x');
        EXPECT_EQ(c.read(path.c_str(), buf.data(), c.len), c.result) << c.buf << " " << c.len;
        EXPECT_EQ(buf, c.buf);
        EXPECT_EQ(c.read("/nowhere/x", buf.data(), 3000000000U), -1);
        EXPECT_THAT(log.take(), ElementsAre("[WARN][ZXMD]Read len(-1294967296) is out of "
                                            "range(0~2147483646),set to 2147483646",
                                            "[ERROR][ZXMD]Open (/nowhere/x) failed"));
    }
}

TEST_F(FileTest, ReplacesAFileByACompleteCopy) {
    const std::string path = put("file", "old"), side = path + "_tmp";
    const std::string copy = "cp  -fr    " + side + "  " + path + "  > /dev/null";
    EXPECT_EQ(zxmd_api_writeProtect(path.c_str(), data, 4), 4);
    EXPECT_THAT(g_commands, ElementsAre(copy, "rm  -fr   " + side + "   "));
    EXPECT_EQ(content_of(path), "0123");
    EXPECT_EQ(zxmd_api_isFileExsit(side.c_str()), 0);

    fs::permissions(put("target", "old"), fs::perms::owner_read);
    fs::remove(path);
    fs::create_symlink("target", path);
    g_breaks_copies = true;
    EXPECT_EQ(zxmd_api_writeProtect(path.c_str(), data, 4), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][ZXMD]inner error:cmd [" + copy + "] failed"));
    g_breaks_copies = false;
    EXPECT_EQ(content_of(path), "0123") << "the copy emptied it and broke off";
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read);
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(zxmd_api_isFileExsit(side.c_str()), 0);
}

// Calls that wait for the other end of a FIFO, and return when four bytes are moved.
class WaitingTest : public FileTest, public testing::WithParamInterface<int> {
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

    const std::string fifo = dir + "/fifo";
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

// Cancels a call while it waits for the other end. The fault injection cancels at every other call.
TEST_P(WaitingTest, CanBeCancelled) {
#ifdef __SANITIZE_ADDRESS__
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

TEST_F(FileTest, RandomValuesStayInsideTheirBounds) {
    for (uint32_t len = 0; len < 40; ++len) {
        EXPECT_LE(zxmd_api_randomU32(5, 5 + len) - 5, len);
        std::vector<uint8_t> buf(len + 8);
        EXPECT_EQ(zxmd_api_randomStr(buf.data(), len), len);
        EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), 8) << "no NUL inside, none touched behind";
        const std::vector<uint8_t> before = buf;
        zxmd_api_randomInsert(buf.data(), len, 10);
        EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + std::min(len, 10U), before.begin()));
        EXPECT_TRUE(std::equal(buf.begin() + len, buf.end(), before.begin() + len));
    }
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
        {0, 0, false, 0},    // an administrator
#ifndef __SANITIZE_THREAD__  // its own thread would need the capabilities, too
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
