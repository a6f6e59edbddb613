// The tool that asks running programs: what it makes of their answers, good and bad, whom it asks,
// and its live screen.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "files.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "terminal/amount.hpp"
#include "top.hpp"
#include "zxcommon.hpp"
#include "zxdiag.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;
using zx::test::comes_true;
using zx::test::content_of;
using zx::test::Process;

zxcommon::Descriptor listening_at(const std::string& path) {
    zxcommon::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(fd.get(), 8), 0);
    return fd;
}

bool put(int fd, const std::string& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Serves one client after the other. False from `answer` ends the connection.
class FakeProgram {
public:
    using Answer = std::function<bool(int fd, const std::string& question)>;
    FakeProgram(const std::string& path, Answer answer)
        : listener_(listening_at(path)), answer_(std::move(answer)), thread_([this] { serve(); }) {}
    ~FakeProgram() {
        shutdown(listener_.get(), SHUT_RDWR);
        thread_.join();
    }

private:
    void serve() {
        for (;;) {
            const zxcommon::Descriptor fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (!fd) {
                return;
            }
            std::string question;
            for (char c; recv(fd.get(), &c, 1, 0) == 1;) {
                if (c != '\n') {
                    question += c;
                } else if (!answer_(fd.get(), question)) {
                    break;
                } else {
                    question.clear();
                }
            }
        }
    }

    zxcommon::Descriptor listener_;
    Answer answer_;
    std::thread thread_;
};

const std::map<std::string, std::string> kAnswers = {
    {"program", R"({"program":"fake","pid":1,"library":"1.2.3"})"},
    {"locks",
     R"({"locks":[{"name":"log","held":false,"holder":"nolock","taken":12,"contended":0,
"longest_wait_us":0,"longest_hold_us":7,"waiting":[]},{"name":"ring","held":true,"holder":"put,9",
"holder_thread":"in","held_us":2345678,"taken":1234567,"contended":3,"longest_wait_us":61000000,
"longest_hold_us":1500,"waiting":[{"tid":78,"thread":"out","place":"get,5","waiting_us":2000}]}],
"left_out":4})"},
    {"waits", R"({"waits":[],"cycles":[{"text":"A waits for B","age_s":90}],"inversions":[]})"},
    {"memory", R"({"buffers":3,"bytes":2048,"places":[{"name":"p","file":"a.cpp","line":12,
"buffers":1,"bytes":512,"oldest_s":90000,"made":5,"freed":4,"bytes_per_s":-2},{"name":"q","file":"b",
"line":1,"buffers":2,"bytes":1536,"oldest_s":1,"made":2,"freed":0,"bytes_per_s":0}],"left_out":0})"},
    {"fifos", R"({"fifos":[{"name":"in","size_bytes":4096,"used_bytes":1024,"highest_bytes":2048,
"in_bytes_per_s":1250000.5,"out_bytes_per_s":0,"overwritten_bytes":1,"stale_bytes":0,"resets":2}]})"},
    {"descriptors", R"({"open":5,"limit":1024,"kinds":[{"kind":"tcp","count":2},{"kind":"pipe",
"count":3}]})"},
    {"log lines=1",
     R"({"level":3,"lines":[{"at":"12:00","level":"ERROR","tag":"T","text":"no"}]})"},
    {"new",
     R"({"things":[{"some_us":1,"some_name":"x"}],"empty":[{}],"numbers":[1,2],"is_new":true})"},
    {"trace seconds=1", R"({"traceEvents":[{"name":"\"]{","ph":"X","args":{"ph":"X"}},)"
                        R"({"name":"\"ph\":\"X\"","ph":"M"}],"dropped":7})"},
};

// The answers above, each on one line.
bool answer_well(int fd, const std::string& question) {
    const auto found = kAnswers.find(question);
    std::string line = found != kAnswers.end() ? found->second : R"({"error":"no such question"})";
    std::erase(line, '\n');
    return put(fd, line + '\n');
}

class Ctl : public testing::Test {
protected:
    Ctl() { std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all); }

    // What the tool prints to standard output, then its complaint, then its exit code unless it is
    // 0.
    std::string run(const std::string& arguments) {
        const std::string file = folder.path() + "/out";
        Process process("ZX_DIAG='" + folder.path() + "' exec " ZX_CTL " " + arguments + " >'" +
                        file + "'");
        const int code = process.wait();
        return content_of(file) + process.errors() + (code != 0 ? std::to_string(code) : "");
    }

    std::string socket_of(const std::string& name) { return folder.path() + '/' + name + ".sock"; }

    zx::test::Folder folder;
};

TEST_F(Ctl, ShowsEveryTopicAsPeopleReadIt) {
    const FakeProgram fake(socket_of("fake.4711"), answer_well);
    EXPECT_EQ(run("fake locks"),
              "left out 4\n"
              "lock  holder  thread  held for  waiting  longest wait  contended  longest hold      "
              "taken\n"
              "ring  put,9   in         2.3 s        1     1 min 1 s          3        1.5 ms  "
              "1,234,567\n"
              "log   -       -              -        0          0 us          0          7 us      "
              "   12\n"
              "ring: out (78) waits at get,5 for 2.0 ms\n");
    EXPECT_EQ(run("fake waits"),
              "no waits\ndeadlock, 1 min 30 s ago: A waits for B\nno inversions\n");
    EXPECT_EQ(run("fake memory"),
              "buffers 3, bytes 2KB\n"
              "name  place      bytes  buffers  growth   oldest  made  freed\n"
              "q     b:1       1.50KB        2    0B/s    1.0 s     2      0\n"
              "p     a.cpp:12    512B        1   -2B/s  1 d 1 h     5      4\n");
    EXPECT_EQ(run("fake fifos"),
              "FIFO     use  size  highest        in   out  overwritten  stale  resets\n"
              "in    25.0 %   4KB      2KB  1.19MB/s  0B/s           1B     0B       2\n");
    EXPECT_EQ(run("4711 descriptors"),
              "open 5, limit 1,024\nkind  count\npipe      3\ntcp       2\n");
    EXPECT_EQ(run("fake log lines=1"), "level 3\n12:00 [ERROR][T] no\n");
    EXPECT_EQ(run("fake new"),
              "is new yes\nsome  some name\n1 us  x\nempty: 1\nnumbers: 1\nnumbers: 2\n");
    EXPECT_EQ(run("fake program --json"), kAnswers.at("program") + '\n');
    EXPECT_EQ(run("fake lists"), "zxctl: fake (4711): the program says: no such question\n1");
    EXPECT_EQ(run("fake lists --json"),
              "{\"error\":\"no such question\"}\n"
              "zxctl: fake (4711): the program says: no such question\n1");
    // As wide as the terminal, with colours.
    Process terminal("script -qec 'stty cols 50; " ZX_CTL " " + socket_of("fake.4711") +
                     " locks; " ZX_CTL " " + socket_of("fake.4711") + " log lines=1' /dev/null >'" +
                     folder.path() + "/screen' </dev/null");
    EXPECT_EQ(terminal.wait(), 0);
    const std::string screen = content_of(folder.path() + "/screen");
    EXPECT_THAT(screen, HasSubstr("lock  holder  thread  held for  waiting\x1b[0m\r\n"));
    EXPECT_THAT(screen, HasSubstr("12:00\x1b[1;31m [ERROR][T] no\x1b[0m\r\n"));
}

TEST(CtlAmount, IsReadable) {
    const struct {
        const char* key;
        double value;
        const char* text;
    } cases[] = {{"x_us", 999, "999 us"},         {"x_us", 59.99e6, "59.9 s"},
                 {"age_s", 7260, "2 h 1 min"},    {"bytes", -1536, "-1.50KB"},
                 {"n", 1234567, "1,234,567"},     {"n", 0.5, "0.50"},
                 {"n", 1e300, "1e+300"},          {"x_us", -1e308 * 10, "-inf"},
                 {"tid", 1234567, "1234567"},     {"x_percent", 12.34, "12.3 %"},
                 {"x_bytes_per_s", 2048, "2KB/s"}};
    for (const auto& its : cases) {
        EXPECT_EQ(terminal::amount_text(its.key, its.value), its.text) << its.key;
    }
}

TEST_F(Ctl, AsksAProgramThatUsesTheLibrary) {
    const zx::test::LogCapture log{0};
    ASSERT_EQ(zxdiag_api_serve(socket_of("real").c_str()), 0);
    const std::string me = std::to_string(getpid());
    EXPECT_THAT(run("list"), testing::MatchesRegex("program +process  state +library +socket\n"
                                                   "real +" +
                                                   me + "  serves  [0-9.]+ +/.*\n"));
    EXPECT_THAT(run("real help"), testing::ContainsRegex("\nlocks +each lock: "));
    EXPECT_THAT(run(me + " program"), testing::ContainsRegex("pid +" + me + "\n"));
    EXPECT_THAT(run("real locks --json"), StartsWith("{"));
    EXPECT_THAT(run("real none"), HasSubstr("there is no such question: ask 'help'\n1"));
    zxdiag_api_stop();
}

TEST_F(Ctl, KnowsWhomToAsk) {
    EXPECT_THAT(run("list"), StartsWith("no program serves"));
    EXPECT_THAT(run("fake locks"), HasSubstr("no program 'fake' serves in " + folder.path()));
    EXPECT_THAT(run("list --dir /none"), HasSubstr("/none: No such file or directory\n1"));
    const FakeProgram one(socket_of("fake.12"), answer_well);
    const FakeProgram two(socket_of("fake.34"), answer_well);
    for (const char* const name : {"fake.56.sock", "other.sock.old", "fake.78.sock"}) {
        (void)listening_at(folder.path() + '/' + name);  // nobody serves it afterwards
    }
    std::filesystem::remove(socket_of("fake.78"));
    std::ofstream(socket_of("fake.78")) << "a file";
    EXPECT_EQ(run("fake locks"),
              "zxctl: several programs are called 'fake': name one of the processes 12, 34\n1");
    EXPECT_THAT(run("12 locks"), HasSubstr("ring  put,9"));
    EXPECT_THAT(run(socket_of("fake.34") + " locks"), HasSubstr("ring  put,9"));
    EXPECT_THAT(run(socket_of("fake.56") + " locks"), HasSubstr("nobody serves the socket\n1"));
    EXPECT_THAT(run("list"), testing::AllOf(HasSubstr("fake          56  stale"),
                                            HasSubstr("nobody serves: 1 (")));
    EXPECT_TRUE(std::filesystem::exists(socket_of("fake.56")));
    EXPECT_THAT(run("list --clean"), HasSubstr("fake          56  removed"));
    EXPECT_FALSE(std::filesystem::exists(socket_of("fake.56")));
    for (const char* const kept : {"fake.12.sock", "other.sock.old", "fake.78.sock"}) {
        EXPECT_TRUE(std::filesystem::exists(folder.path() + '/' + kept)) << kept;
    }
    for (const char* const wrong :
         {"", "fake", "fake locks x", "fake trace 5", "fake trace --output x", "fake trace 0 -o x",
          "fake top </dev/null", "list --watch 3", "fake locks --clean", "fake log 'tag=a b'",
          "fake log --timeout 0", "fake log --timeout nan", "--none"}) {
        EXPECT_THAT(run(wrong), testing::MatchesRegex("zxctl: [^\n]+ \\(try --help\\)\n2"))
            << wrong;
    }
}

// What the shell is offered contains nothing that it expands.
TEST_F(Ctl, CompletesNamesThatAreSafe) {
    const FakeProgram one(socket_of("fake.12"), answer_well);
    const FakeProgram two(socket_of("$(touch${IFS}touched).34"), answer_well);
    const FakeProgram three(socket_of("f*.56"), answer_well);
    EXPECT_THAT(run("list"), HasSubstr("$(touch${IFS}touched)       34  serves"));
    Process shell("cd '" + folder.path() +
                  "' && ZX_DIAG=. bash -c 'source " ZX_CTL_COMPLETION
                  "; for begin in \"\" f; do _zxctl " ZX_CTL
                  " \"$begin\"; echo \"${COMPREPLY[*]}\"; done' >words");
    EXPECT_EQ(shell.wait(), 0) << shell.errors();
    EXPECT_EQ(content_of(folder.path() + "/words"), "list 34 56 fake 12\nfake\n");
    EXPECT_FALSE(std::filesystem::exists(folder.path() + "/touched"));
}

// Whatever a program sends, the tool answers with one sentence, in bounded time and memory.
TEST_F(Ctl, EnduresBadPrograms) {
    const std::string deep(2000, '[');
    const struct {
        std::string bytes;
        std::string sentence;
        bool goes_on = true;
    } cases[] = {
        {"garbage\n", "the answer is not a JSON object"},
        {"{\"a\":1} x\n", "the answer is not a JSON object"},
        {std::string("{\"a\":\0}\n", 8), "the answer is not a JSON object"},
        {"{\"a\":\"\x1b[2J\"}\n", "the answer is not a JSON object"},
        {"[1]\n", "the answer is not a JSON object"},
        {"{\"a\":" + deep + "\n", "the answer is not a JSON object"},
        {"{\"a\":[1" + std::string(400000, ',') + "]}\n", "the answer has more than 300000 parts"},
        {"{\"error\":\"\\u001b]0;x\\u0007\"}\n", "the program says: \\x1b]0;x\\x07"},
        {"{\"error\":7}\n", "the program says: an error without a text"},
        {"", "no answer within 0.300 s"},
        {"{\"loc", "no answer within 0.300 s"},
        {"{\"loc", "the program has ended, or has closed the connection", false},
    };
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.sentence + ": " + bad.bytes.substr(0, 20));
        const FakeProgram fake(socket_of("bad.7"), [&](int fd, const std::string&) {
            put(fd, bad.bytes);
            return bad.goes_on;
        });
        EXPECT_EQ(run("bad locks --timeout 0.3"), "zxctl: bad (7): " + bad.sentence + "\n1");
        std::filesystem::remove(socket_of("bad.7"));
    }
    const FakeProgram endless(socket_of("bad.7"), [](int fd, const std::string&) {
        while (put(fd, std::string(65536, 'x'))) {
        }
        return false;
    });
    EXPECT_EQ(run("bad locks"), "zxctl: bad (7): the answer is longer than 16 MiB\n1");
#ifndef ZX_ASAN
    rusage used{};
    getrusage(RUSAGE_CHILDREN, &used);
    EXPECT_LT(used.ru_maxrss, 100 * 1024);  // KiB
#endif
}

TEST_F(Ctl, GivesATerminalNothingThatControlsIt) {
    const std::string name = "\\u001b[31m\x7f\xc2\x9b\xff\u202e\u00e9\\n";
    const std::string line = "{\"locks\":[{\"name\":\"" + name +
                             "\",\"taken\":1e999,\"contended\":-1e300,"
                             "\"longest_wait_us\":1e300,\"waiting\":[{\"thread\":{}}]},7],\"" +
                             name + "\":{\"" + name + "\":\"" + name + "\"}}\n";
    const FakeProgram fake(socket_of("bad.7"),
                           [&](int fd, const std::string&) { return put(fd, line); });
    EXPECT_THAT(run("bad locks"), HasSubstr("\\x1b[31m\\x7f\\xc2\\x9b\\xff\\xe2\\x80\\xae"));
    EXPECT_THAT(run("bad locks --json"),
                HasSubstr("\\u001b[31m\\u007f\\u009b\\ufffd\u202e\u00e9\\n"));
    for (const char* const command : {"bad locks", "bad locks --json"}) {
        const std::string said = run(command);
        EXPECT_TRUE(std::ranges::none_of(said, [](unsigned char c) {
            return (c < 0x20 && c != '\n') || c == 0x7F || c == 0xFF;
        })) << said;
    }
}

TEST_F(Ctl, WatchesFollowsAndTraces) {
    int asked = 0;
    const FakeProgram memory(socket_of("memory.7"), [&](int fd, const std::string&) {
        const std::string places[] = {
            R"({"name":"p","file":"a","line":1,"buffers":1,"bytes":10},)"
            R"({"name":"gone","file":"a","line":2,"buffers":1,"bytes":5},)"
            R"({"name":"same","file":"a","line":3,"buffers":1,"bytes":7})",
            R"({"name":"p","file":"a","line":1,"buffers":3,"bytes":40},)"
            R"({"name":"same","file":"a","line":3,"buffers":1,"bytes":7})"};
        return asked < 2 && put(fd, "{\"places\":[" + places[asked++] + "]}\n");
    });
    EXPECT_THAT(run("memory memory --watch 1"),
                testing::ContainsRegex(
                    "\nmore than 1\\.[0-9] s ago:\nname  place  more bytes  more buffers  bytes  "
                    "buffers  oldest\np     a:1           30B             2    40B        3  -\n"
                    "gone  a:2           -5B            -1     0B        0  -\n"
                    "zxctl: memory .7.: the program has ended"));

    const FakeProgram log(socket_of("log.7"), [](int fd, const std::string& question) {
        return question == "tail level=5" &&
               put(fd,
                   "{\"at\":\"1\",\"level\":4,\"tag\":\"A\",\"text\":\"one\"}\n"
                   "{\"at\":\"2\",\"level\":5,\"tag\":\"B\",\"text\":\"two\"}\n") &&
               false;
    });
    EXPECT_THAT(run("log tail level=5"),
                StartsWith("1 [INFO][A] one\n2 [DEBUG][B] two\nzxctl: log (7): "));

    std::atomic<int> traced{0};
    const FakeProgram fake(socket_of("fake"), [&](int fd, const std::string& question) {
        ++traced;
        return answer_well(fd, question);
    });
    const std::string file = folder.path() + "/trace.json";
    EXPECT_EQ(run("fake trace 1 -o " + file), file + ": 1 events, 7 dropped\n");
    EXPECT_EQ(content_of(file), kAnswers.at("trace seconds=1") + '\n');
    EXPECT_EQ(run("fake trace 1 --json"), content_of(file));
    EXPECT_THAT(run("fake trace 2 -o " + file), HasSubstr("no such question\n1"));
    EXPECT_NE(content_of(file), "");  // the old one is kept
    EXPECT_THAT(run("fake trace 2 -o " + file + "2"), HasSubstr("no such question\n1"));
    EXPECT_FALSE(std::filesystem::exists(file + "2"));
    traced = 0;
    for (const auto& [path, reason] :
         std::map<std::string, std::string>{{"/none/x", "/none/x: No such file or directory"},
                                            {folder.path(), folder.path() + ": Is a directory"},
                                            {"/dev/full", "/dev/full: No space left on device"}}) {
        EXPECT_THAT(run("fake trace 1 -o " + path), HasSubstr(reason + "\n1"));
    }
    EXPECT_EQ(traced, 1);  // for /dev/full
}

std::string text_of(const std::vector<terminal::ScreenLine>& lines) {
    std::string text;
    for (const terminal::ScreenLine& line : lines) {
        text += line.text + '\n';
    }
    return text;
}

TEST(CtlTop, ShowsPanelsThatCanBeSortedAndMoved) {
    ctl::Top top("fake (1)");
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr("no answer yet"));
    std::string threads;
    for (int i = 0; i < 50; ++i) {
        threads += (i == 0 ? "" : ",") + std::string("{\"name\":\"t") + std::to_string(i) +
                   "\",\"tid\":" + std::to_string(100 - i) +
                   ",\"cpu_percent\":" + std::to_string(i) + "}";
    }
    const auto take = [&](std::size_t question, const std::string& line) {
        top.take(question, ctl::parse_answer(line));
    };
    take(0, "{\"threads\":[" + threads + "]}");
    take(1, "{\"error\":\"none\\u001b\"}");
    take(2, "{\"waits\":[{}],\"cycles\":[{\"text\":\"" + std::string(100, 'w') + "\"}]}");
    take(3, "{\"fifos\":[]}");
    take(4, "{\"bytes\":1024,\"places\":[{\"name\":\"p\",\"bytes_per_s\":-2}]}");
    top.set_state("12:00:00", false);

    std::string text = text_of(top.draw(80, 24));
    EXPECT_THAT(text, StartsWith("fake (1)" + std::string(64, ' ') + "12:00:00\n" +
                                 "50 threads 1,225 %, 0 locks 1 waiting, 0 FIFOs 0 %, 1KB -2B/s\n" +
                                 "deadlock: " + std::string(70, 'w') + '\n' + std::string(30, 'w') +
                                 "\n[1 threads]  2 locks "));
    EXPECT_THAT(text, HasSubstr(" sorted by processor\nthread  tid  processor"));
    EXPECT_LT(text.find("t49 "), text.find("t48 "));
    EXPECT_EQ(text.find("t31 "), std::string::npos);
    EXPECT_EQ(std::ranges::count(text, '\n'), 24);
    top.on_key(terminal::kKeyPageDown);
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr("t31 "));
    for (int i = 0; i < 99; ++i) {
        top.on_key(terminal::kKeyDown);
    }
    EXPECT_THAT(text_of(top.draw(80, 24)), testing::AllOf(HasSubstr("t0 "), HasSubstr("t16 ")));
    top.on_key('S');  // the column before
    top.on_key('r');
    top.on_key(terminal::kKeyPageUp);
    top.on_key(terminal::kKeyPageUp);
    EXPECT_THAT(text_of(top.draw(80, 24)),
                testing::ContainsRegex("sorted by tid, reversed\nthread [^\n]*\nt49 "));
    top.on_key('2');
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr("the program says: none\\x1b\n"));
    top.on_key('\t');
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr("no FIFOs\n"));
    top.on_key('h');
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr("reverse the order"));
    top.on_key('p');
    EXPECT_THAT(text_of(top.draw(80, 24)), HasSubstr(" paused\n"));
    for (std::size_t size = 0; size < 30; ++size) {
        const auto lines = top.draw(size, 30 - size);
        EXPECT_EQ(lines.size(), 30 - size);
        for (const terminal::ScreenLine& line : lines) {
            EXPECT_LE(line.text.size(), size);
        }
    }
    EXPECT_FALSE(top.on_key('q'));
}

TEST_F(Ctl, TopOutlivesTheProgram) {
    int asked = 0;
    const FakeProgram fake(socket_of("fake"), [&](int fd, const std::string& question) {
        return ++asked <= 5 && answer_well(fd, question);
    });
    const std::string screen = folder.path() + "/screen";
    const std::string keys = folder.path() + "/keys";
    Process top("mkfifo '" + keys +
                "'; TERM=xterm script -qec 'stty rows 24 cols 80; exec " ZX_CTL " " +
                socket_of("fake") + " top' /dev/null >'" + screen + "' <'" + keys + "'");
    std::ofstream press;
    ASSERT_TRUE(comes_true([&] { return std::filesystem::exists(keys); }));
    press.open(keys);
    EXPECT_TRUE(comes_true(
        [&] { return content_of(screen).find("the program has ended") != std::string::npos; }));
    EXPECT_THAT(content_of(screen), HasSubstr("[1 threads]"));
    press << 'q' << std::flush;
    EXPECT_EQ(top.wait(), 0);
    EXPECT_THAT(run("fake top --json"), HasSubstr("the program has ended"));
}

}  // namespace
