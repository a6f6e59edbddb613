// The log of several processes with several threads each, while they are disturbed. Every line
// arrives once and complete, and the lines of each writer arrive in order.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "files.hpp"
#include "scenario.hpp"
#include "zxlog.h"

namespace {

namespace fs = std::filesystem;
using zx::test::run_beside;
using zx::test::run_threads;

constexpr auto kRound = std::chrono::milliseconds(1500);  // the log checks its file each second
constexpr int kProcesses = 2;
constexpr int kThreads = 3;
constexpr int kWriters = 2 * kThreads + 1;  // each thread, its signals, and forked children

const std::string kLetters(5000, 'x');

int length_of(int number) {
    return number % 50 == 0 ? number * 37 % 5000 : number % 97;
}

// After the time, a line has its writer, its number, and as many letters as the number demands.
// After the last line, the writer adds a line that says so.
struct Writer {
    int id = 0;
    int next = 0;
    void write() {
        zxlog_innerapi_file("%s %d %d %.*s\r\n", zxlog_innerapi_logTime(), id, next,
                            length_of(next), kLetters.c_str());
        ++next;
    }
    void end() const {
        zxlog_innerapi_file("%s %d %d end\r\n", zxlog_innerapi_logTime(), id, next);
    }
};

thread_local Writer t_signals;

void log_signal(int) {
    t_signals.write();
}

// A process whose threads log for a round while they are disturbed.
class Process {
public:
    using Disturbance = void (Process::*)();

    Process(int number, std::string log) : first_(number * kWriters), log_(std::move(log)) {}

    int run(const std::vector<Disturbance>& disturbances) {
        zxlog_api_setFile(log_.c_str());
        signal(SIGUSR1, log_signal);
        std::jthread others =
            run_beside(disturbances.size(), [&](std::size_t i) { (this->*disturbances[i])(); });
        run_threads(kThreads,
                    [this](std::size_t i) { log_lines(first_ + 2 * static_cast<int>(i)); });
        ended_ = true;
        others.join();
        return failures_ == 0 ? 0 : 1;
    }

    void fork_children() {
        Writer children{first_ + kWriters - 1};
        const std::string own_file = log_ + ".child";  // forked children must not allocate
        for (; !ended_; ++children.next) {
            const pid_t child = fork();
            if (child == 0) {
                alarm(30);
                children.write();
                _exit(zxlog_api_setFile(own_file.c_str()));
            }
            int status = -1;
            failures_ += waitpid(child, &status, 0) == child && status == 0 ? 0 : 1;
            usleep(1000);
        }
        children.end();
    }

    void change_file() {
        for (int i = 0; !ended_; ++i) {
            zxlog_api_setFile((log_ + (i % 2 == 0 ? "" : ".odd")).c_str());
        }
    }

    void move_file() {
        for (int i = first_; !ended_; i += kProcesses * kWriters) {
            std::string moved = log_ + '.';
            moved += std::to_string(i);
            rename(log_.c_str(), moved.c_str());
            usleep(1000);
        }
    }

private:
    void log_lines(int id) {
        Writer own{id};
        t_signals = {id + 1};
        {
            const std::jthread signals([self = pthread_self()](const std::stop_token& stop) {
                for (; !stop.stop_requested(); usleep(900)) {
                    pthread_kill(self, SIGUSR1);
                }
            });
            for (const auto end = Clock::now() + kRound; Clock::now() < end; usleep(100)) {
                for (int burst = 0; burst < 4; ++burst) {
                    errno = 4711;
                    own.write();
                    failures_ += errno == 4711 ? 0 : 1;
                }
            }
        }
        usleep(1000);  // the thread sanitizer delivers signals late
        own.end();
        t_signals.end();
    }

    using Clock = std::chrono::steady_clock;
    int first_;
    std::string log_;
    std::atomic<bool> ended_{false};
    std::atomic<int> failures_{0};
};

// What was read of a writer's lines.
struct Found {
    std::set<int> numbers;
    int end = -1;
};

class LogStress : public testing::Test {
protected:
    // Checks and removes the files of each round.
    void log_while(const std::vector<Process::Disturbance>& disturbances) {
        std::uint64_t lines = 0;
        do {
            const zx::test::Folder folder;
            run_processes(folder.path() + "/log", disturbances);
            found.clear();
            files.clear();
            for (const auto& entry : fs::directory_iterator(folder.path())) {
                files.insert(entry.path().filename());
                read(entry.path());
            }
            for (const auto& [id, writer] : found) {
                ASSERT_GT(writer.end, 0) << id;
                ASSERT_EQ(writer.numbers.size(), static_cast<std::size_t>(writer.end)) << id;
                ASSERT_EQ(*writer.numbers.rbegin(), writer.end - 1) << id;
                lines += writer.numbers.size();
            }
        } while (scenario.goes_on());
        scenario.tell(lines, "lines");
    }

    zx::test::Scenario scenario;
    std::map<int, Found> found;  // by writer
    std::set<std::string> files;

private:
    static void run_processes(const std::string& log,
                              const std::vector<Process::Disturbance>& disturbances) {
        pid_t children[kProcesses];
        for (int i = 0; i < kProcesses; ++i) {
            children[i] = fork();
            if (children[i] == 0) {
                alarm(60);
                _exit(Process(i, log).run(disturbances));
            }
        }
        for (const pid_t child : children) {
            int status = -1;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
        }
    }

    void read(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        std::map<int, int> next;
        for (std::string line; std::getline(in, line);) {
            int id = -1;
            int number = -1;
            int text = 0;
            std::sscanf(line.c_str(), "[%*[-0-9] %*[:.0-9]] %d %d%n", &id, &number, &text);
            ASSERT_GT(text, 0) << path << " " << line;
            const std::string what = line.substr(static_cast<std::size_t>(text));
            if (what == " end\r") {
                found[id].end = number;
                continue;
            }
            const auto length = static_cast<std::size_t>(length_of(number));
            ASSERT_EQ(what, std::string(" ").append(kLetters, 0, length).append("\r")) << path;
            ASSERT_GE(number, next[id]) << path << " " << line;
            next[id] = number + 1;
            ASSERT_TRUE(found[id].numbers.insert(number).second) << "twice: " << line;
        }
    }
};

TEST_F(LogStress, AForkEveryMillisecondWhileTheFileIsChanged) {
    log_while({&Process::fork_children, &Process::change_file});
    EXPECT_EQ(found.size(), std::size_t{kProcesses * kWriters});
    EXPECT_THAT(files, testing::ElementsAre("log", "log.child", "log.odd"));
}

TEST_F(LogStress, FilesMovedAwayAsSoonAsTheyAppear) {
    log_while({&Process::move_file});
    EXPECT_EQ(found.size(), std::size_t{kProcesses * 2 * kThreads});
    EXPECT_GT(files.size(), 1U);
}

}  // namespace
