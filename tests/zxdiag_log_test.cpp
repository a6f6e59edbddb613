// The log of a running program, with the real libzxlog. What changes a process for good happens in
// a child.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "child.hpp"
#include "diag_client.hpp"
#include "files.hpp"
#include "process.hpp"
#include "zxcommon.hpp"
#include "zxdiag.h"
#include "zxsignal.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using zx::test::comes_true;
using zx::test::content_of;
using zx::test::DiagClient;
using zx::test::in_child;
using zxcommon::Level;

struct Line {
    std::string level;
    std::string tag;
    std::string text;
    bool operator==(const Line&) const = default;
};

using Json = std::unique_ptr<cJSON, decltype(&cJSON_Delete)>;

Json parsed(const std::string& text) {
    return {cJSON_Parse(text.c_str()), cJSON_Delete};
}

std::string text_of(const cJSON* object, const char* key) {
    const char* const text = cJSON_GetStringValue(cJSON_GetObjectItem(object, key));
    return text != nullptr ? text : "<none>";
}

Line line_of(const cJSON* object) {
    return {text_of(object, "level"), text_of(object, "tag"), text_of(object, "text")};
}

std::vector<Line> lines_of(const std::string& answer) {
    const Json json = parsed(answer);
    std::vector<Line> lines;
    const cJSON* line = nullptr;
    cJSON_ArrayForEach(line, cJSON_GetObjectItem(json.get(), "lines")) {
        lines.push_back(line_of(line));
    }
    return lines;
}

// Asks for a tail, and logs lines until they come back. The tail then begins with the next line.
void follow(DiagClient& tail, const std::string& question) {
    std::atomic<bool> is_followed{false};
    std::thread logger([&] {
        while (!is_followed) {
            zxcommon::log({Level::info, "CAMERA"}, "waits");
            usleep(1000);
        }
    });
    EXPECT_THAT(tail.ask(question), HasSubstr("\"text\":\"waits\""));
    is_followed = true;
    logger.join();
    zxcommon::log({Level::info, "CAMERA"}, "begins");
    std::string line;
    do {
        line = tail.line();
    } while (line.find("waits") != std::string::npos);
    EXPECT_THAT(line, HasSubstr("begins"));
}

class DiagLog : public testing::Test {
protected:
    DiagLog() {
        std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
        zxlog_api_setFile(log.c_str());
        zxlog_api_setLoglevel(1);
        EXPECT_EQ(zxdiag_api_serve(path.c_str()), 0);
    }
    ~DiagLog() override {
        zxdiag_api_stop();
        zxlog_api_setFile(nullptr);
    }

    zx::test::Folder folder;
    std::string path = folder.path() + "/socket";
    std::string log = folder.path() + "/log";
};

TEST_F(DiagLog, KeepsLinesThatTheLevelSuppresses) {
    DiagClient client(path);
    DiagClient tail(path);
    const std::string start = client.ask("log");
    EXPECT_THAT(start, HasSubstr("\"level\":1,\"tags\":\"\",\"recording\":true"));
    EXPECT_EQ(lines_of(start).back().text, "the diagnosis is served at " + path);
    EXPECT_THAT(client.ask("tail level=6"), HasSubstr("\"error\""));
    EXPECT_THAT(client.ask("log lines=0"), HasSubstr("\"error\""));

    follow(tail, "tail level=4 tag=CAMERA");
    zxsignal_innerapi_handler(SIGUSR1);  // a line of the library
    zxcommon::log({Level::debug, "CAMERA"}, "step %d", 1);
    zxcommon::log({Level::info, "CAMERA"}, "a\x1b[2J\xe9 %s", std::string(600, 'x').c_str());
    zxlog_innerapi_file("a line of another form\r\n");
    zxcommon::log({Level::error, "OTHER"}, "written");
    const std::vector<Line> lines = lines_of(client.ask("log lines=5"));
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], (Line{"NOTICE", "SIGNAL", "Catch a signal(10):User-defined signal 1"}));
    EXPECT_EQ(lines[1], (Line{"DEBUG", "CAMERA", "step 1"}));
    EXPECT_THAT(lines[2].text,
                testing::AllOf(testing::StartsWith("a\\x1b[2J? xxx"), testing::EndsWith("xxx...")));
    EXPECT_EQ(lines[3], (Line{"", "", "a line of another form"}));
    EXPECT_EQ(lines[4], (Line{"ERROR", "OTHER", "written"}));
    EXPECT_EQ(lines_of(client.ask("log lines=1 tag=CAMERA level=4")).at(0), lines[2]);

    EXPECT_EQ(line_of(parsed(tail.line()).get()), lines[2]);

    EXPECT_EQ(zxlog_api_getLoglevel(), 1U);
    EXPECT_THAT(content_of(log),
                testing::MatchesRegex("a line of another form\r\n"
                                      "\\[.*\\]\\[ERROR\\]\\[OTHER\\]written\r\n"));
    zxdiag_api_stop();
    zxcommon::log({Level::debug, "CAMERA"}, "not kept");
    char* answer = zxdiag_api_ask("log lines=1");
    EXPECT_THAT(answer, HasSubstr("\"recording\":false"));
    EXPECT_THAT(answer, HasSubstr("written"));
    zxdiag_api_free(&answer);
}

TEST_F(DiagLog, IsChangedForAWhile) {
    DiagClient client(path);
    EXPECT_THAT(client.ask("level level=5 seconds=1000"), HasSubstr("\"level\":5,\"before\":1"));
    EXPECT_EQ(zxlog_api_getLoglevel(), 5U);
    EXPECT_EQ(in_child([] { return std::to_string(zxlog_api_getLoglevel()); }), "1");
    EXPECT_THAT(client.ask("level level=4 seconds=1"), HasSubstr("\"before\":5"));
    EXPECT_EQ(zxlog_api_getLoglevel(), 4U);
    EXPECT_TRUE(comes_true([] { return zxlog_api_getLoglevel() == 1; }));
    EXPECT_THAT(client.ask("level level=5 seconds=1000"), HasSubstr("\"before\":1"));
    zxlog_api_setLoglevel(5);  // by the program, so it stays

    zxlog_api_setFilterTags("OLD");
    EXPECT_THAT(client.ask("tags tags=CAMERA,SIGNAL seconds=1000"),
                HasSubstr("\"before\":\"OLD\""));
    EXPECT_THAT(client.ask("log"), HasSubstr("\"tags\":\"CAMERA,SIGNAL\""));
    zxcommon::log({Level::error, "CAMERA"}, "suppressed");
    zxsignal_innerapi_handler(SIGUSR1);
    zxcommon::log({Level::error, "OLD"}, "shown");
    EXPECT_STREQ(strfilterTags, "OLD");
    for (const char* const wrong : {"level", "level level=6", "level level=1 seconds=0", "tags"}) {
        EXPECT_THAT(client.ask(wrong), HasSubstr("\"error\"")) << wrong;
    }
    zxdiag_api_stop();
    EXPECT_EQ(zxlog_api_getLoglevel(), 5U);
    zxcommon::log({Level::error, "OLD"}, "hidden");
    EXPECT_THAT(content_of(log), testing::AllOf(HasSubstr("[OLD]shown"), Not(HasSubstr("[CAMERA]")),
                                                Not(HasSubstr("Catch")), Not(HasSubstr("hidden"))));
    char* kept = zxdiag_api_ask("log");
    EXPECT_EQ(lines_of(kept).back(),
              (Line{"NOTICE", "DIAG", "the log suppresses the tags 'OLD' again"}));
    zxdiag_api_free(&kept);
    zxlog_api_setFilterTags("");
}

// A terminal as standard error that nobody reads, and that is full.
void block_standard_error() {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    unlockpt(terminal);
    const int fd = open(ptsname(terminal), O_WRONLY | O_NOCTTY | O_NONBLOCK);
    while (write(fd, "full", 4) > 0) {
    }
    fcntl(fd, F_SETFL, 0);
    dup2(fd, STDERR_FILENO);
}

TEST(DiagBlockedLog, IsChangedAllTheSame) {
    const zx::test::Folder folder;
    const std::string path = folder.path() + "/socket";
    EXPECT_THAT(in_child([&] {
                    alarm(30);
                    zxlog_api_setLoglevel(1);
                    block_standard_error();
                    zxlog_api_setFile(nullptr);
                    zxdiag_api_serve(path.c_str());
                    zxlog_api_setLoglevel(5);
                    DiagClient client(path);
                    std::string answers = client.ask("level level=4 seconds=1");
                    answers += client.ask("tags tags=A,B seconds=1");
                    while (lines_of(client.ask("log lines=1")).back().text !=
                           "the log suppresses the tags '' again") {
                        usleep(10000);
                    }
                    return answers + client.ask("log lines=4");
                }),
                testing::AllOf(HasSubstr("\"for_s\":1"), HasSubstr("is 4 for 1 s"),
                               HasSubstr("is 5 again"), HasSubstr("'A,B' for 1 s")));
}

// Seven characters, again and again.
bool is_whole(const std::string& text) {
    return text.size() >= 7 && text.substr(7) == text.substr(0, text.size() - 7);
}

// Each line arrives, or is counted as missed. None is mixed with another.
TEST_F(DiagLog, OfManyThreadsIsWhole) {
    constexpr int kThreads = 4;
    constexpr int kEach = 6000;
    DiagClient client(path);
    DiagClient tail(path);
    follow(tail, "tail");
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < kEach; ++n) {
                const std::string part = std::to_string(1'000'000 * (i + 1) + n);
                std::string text;
                for (int repeats = n % 50; repeats >= 0; --repeats) {
                    text += part;
                }
                zxcommon::log({Level::debug, "MANY"}, "%s", text.c_str());
            }
            if (--running == 0) {
                zxcommon::log({Level::debug, "MANY"}, "the end");
            }
        });
    }
    threads.emplace_back([&] {
        while (running != 0) {
            for (const Line& line : lines_of(client.ask("log lines=500 level=5 tag=MANY"))) {
                EXPECT_TRUE(is_whole(line.text) || line.text == "the end") << line.text;
            }
        }
    });
    std::map<char, std::string> last;
    double missed = 0;
    int seen = 0;
    for (;;) {
        const Json json = parsed(tail.line());
        if (!json) {
            ADD_FAILURE() << "disconnected";
            break;
        }
        if (const cJSON* const count = cJSON_GetObjectItem(json.get(), "missed")) {
            missed += count->valuedouble;
            continue;
        }
        const std::string text = line_of(json.get()).text;
        if (text == "the end") {
            break;
        }
        EXPECT_TRUE(is_whole(text)) << text;
        std::string& before = last[text[0]];
        EXPECT_LT(before, text.substr(0, 7));
        before = text.substr(0, 7);
        ++seen;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(seen + missed, kThreads * kEach);
}

TEST_F(DiagLog, IsDumpedOnRequest) {
    DiagClient client(path);
    zxcommon::log({Level::debug, "CAMERA"}, "one");
    zxcommon::log({Level::debug, "CAMERA"}, "two");
    const std::string first = client.ask("dump");
    EXPECT_EQ(client.ask("dump"), first);  // dumped lines are not kept again
    const std::string dumped = content_of(log);
    EXPECT_THAT(dumped, HasSubstr("[DIAG]on request: the last lines in memory"));
    EXPECT_THAT(dumped.substr(dumped.find("\r\n| ")),
                testing::ContainsRegex("\\| [^|]*\\[DEBUG\\]\\[CAMERA\\]one\r\n"
                                       "\\| [^|]*\\[DEBUG\\]\\[CAMERA\\]two\r\n"
                                       "[^|]*lines in memory end here \\([0-9]+\\)\r\n"));
}

void fault() {
    void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile char*>(page) = 1;
}

[[gnu::noinline]] int use_up_the_stack(int depth) {
    volatile char room[1024];
    room[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : use_up_the_stack(depth + 1) + room[0];
}

// How a process ends that has the diagnosis on and has logged a line.
std::string end_of(const std::string& log, const std::function<void()>& work) {
    std::filesystem::remove(log);
    return in_child([&] {
        zxlog_api_setFile(log.c_str());
        for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
            signal(number, SIG_DFL);  // sanitizers have handlers of their own
        }
        zxdiag_api_start();
        zxcommon::log({Level::debug, "CAMERA"}, "the last words");
        work();
        return std::string("not at all");
    });
}

TEST(DiagCrash, WritesTheLinesInMemory) {
    const zx::test::Folder folder;
    const std::string log = folder.path() + "/log";
    const auto is_written = testing::ContainsRegex(
        "\\[DIAG\\]SIG[A-Z]*: the last lines .* begin here\r\n(\\| .*\r\n)*"
        "\\| .*\\[CAMERA\\]the last words\r\n(\\| .*\r\n)*"
        "[^|].*SIG[A-Z]*: the lines in memory end here \\([0-9]+\\)\r\n");

    EXPECT_EQ(end_of(log,
                     [] {
                         zxsignal_api_catch();  // SIGSEGV gets its default action
                         std::thread([] {
                             zxcommon::Lock lock("held");
                             const zxcommon::LockGuard guard(lock);
                             fault();
                         }).join();
                     }),
              "<ended by 11>");
    EXPECT_THAT(content_of(log), is_written);

    EXPECT_EQ(end_of(log,
                     [&] {  // in a thread that has the right to change the log's file
                         std::atomic<bool> is_busy{false};
                         std::thread busy([&] {
                             for (;;) {
                                 zxlog_api_setFile(log.c_str());
                                 is_busy = true;
                             }
                         });
                         comes_true([&] { return is_busy.load(); });
                         pthread_kill(busy.native_handle(), SIGBUS);
                         busy.join();
                     }),
              "<ended by 7>");
    EXPECT_THAT(content_of(log), is_written);

    EXPECT_EQ(end_of(log, [] { std::abort(); }), "<ended by 6>");
    EXPECT_THAT(content_of(log), is_written);

    EXPECT_EQ(end_of(log,
                     [] {  // there is no room for the handler on the thread's own stack
                         static char stack[65536];
                         stack_t other{};
                         other.ss_sp = stack;
                         other.ss_size = sizeof stack;
                         sigaltstack(&other, nullptr);
                         use_up_the_stack(0);
                     }),
              "<ended by 11>");
    EXPECT_THAT(content_of(log), is_written);
}

// Other threads go on logging while the lines in memory are being written.
TEST(DiagCrash, WritesTheLinesBeforeIt) {
    constexpr int kMost = 4096;
    const zx::test::Folder folder;
    const std::string log = folder.path() + "/log";
    EXPECT_EQ(end_of(log,
                     [] {
                         std::atomic<int> count{0};
                         const auto work = [&] {
                             for (;;) {
                                 zxcommon::log({Level::debug, "CAMERA"}, "again");
                                 ++count;
                             }
                         };
                         std::thread(work).detach();
                         std::thread(work).detach();
                         comes_true([&] { return count > kMost; });
                         fault();
                     }),
              "<ended by 11>");
    const std::string written = content_of(log);
    const std::size_t end = written.rfind(" end here (");
    ASSERT_NE(end, std::string::npos);
    EXPECT_GT(std::stoi(written.substr(end + 11)), kMost - 100);
}

TEST(DiagCrash, LeavesTheProgramsOwnHandlersAlone) {
    const zx::test::Folder folder;
    const std::string log = folder.path() + "/log";
    EXPECT_EQ(end_of(log,
                     [] {
                         zxdiag_api_stop();
                         signal(SIGSEGV, [](int) { _exit(0); });
                         zxdiag_api_start();
                         fault();
                     }),
              "");
    EXPECT_EQ(end_of(log,
                     [] {
                         zxdiag_api_stop();
                         fault();
                     }),
              "<ended by 11>");
    EXPECT_THAT(content_of(log), Not(HasSubstr("last lines")));
}

}  // namespace
