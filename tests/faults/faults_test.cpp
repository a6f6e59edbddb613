// Lets one thing go wrong in every scenario, and checks what comes of it. Every call of the
// libraries that can fail does fail, at each of its places: once, and from there on. The thread is
// cancelled at each of its cancellation points. The disk is full, files may not grow, signals
// interrupt.
#include "faults.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <utility>

#include "child.hpp"
#include "files.hpp"
#include "log_capture.hpp"
#include "zxlog.h"
#include "zxmd.h"
#include "zxsignal.h"

namespace zx::test {

namespace {

LogCapture* g_log;
std::vector<std::string> g_said;  // all lines and commands of this process

}  // namespace

std::string complaints() {
    std::string text;
    for (const std::string& line : g_log->take()) {
        text += line.starts_with("[ERROR]") || line.starts_with("[WARN]") ? line + ";" : "";
        g_said.push_back(line);
    }
    return text;
}

namespace {

constexpr unsigned kMaxSeconds = 30;
constexpr char kSeparator = '\x1f';

struct Story {
    std::string result, log;
    std::string again;  // the result of a second run, without the fault
    std::string left;   // what the libraries hold after that
    std::string said;   // all lines of the log and all commands, each after a "> "
    std::map<std::string_view, Fallible> calls;
};

void clear_directory() {
    for (const auto& entry : std::filesystem::directory_iterator(g_directory)) {
        std::filesystem::remove_all(entry);
    }
}

// Leaves `nth` - 1 pages free on a disk of our own.
void fill_disk(int nth) {
    constexpr int kPage = 4096;
    unshare(CLONE_NEWNS);
    mount("none", "/", "none", MS_REC | MS_PRIVATE, nullptr);
    const std::string size = "size=" + std::to_string(nth * kPage);
    mount("disk", "/tmp", "tmpfs", 0, size.c_str());
    std::filesystem::create_directory(g_directory);
    std::ofstream(in_directory("filler")) << std::string(kPage, 'x');
}

// Limits files to `nth` - 1 half pages.
void limit_files(int nth) {
    const auto most = static_cast<rlim_t>(nth - 1) * 2048;
    const rlimit limit{most, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
}

// Interrupts the thread's waits all the time.
void storm(bool on) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    static timer_t timer;
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR1;
    const timespec often{0, on ? 300000 : 0};
    const itimerspec times{often, often};
    if (on) {
        timer_create(CLOCK_MONOTONIC, &event, &timer);
    }
    timer_settime(timer, 0, &times, nullptr);
}

// Sets up obstacles other than failing calls.
void hinder(const Fault& fault) {
    if (fault.call == "disk") {
        fill_disk(fault.nth);
    } else if (fault.call == "file_size") {
        if (fault.mode == Fails::once) {
            std::signal(SIGXFSZ, SIG_IGN);
        } else {
            zxsignal_api_catch();
        }
        limit_files(fault.nth);
    } else if (fault.call == "signals") {
        storm(true);
    }
}

void unhinder(const Fault& fault) {
    if (fault.call == "disk") {
        mount("disk", "/tmp", "tmpfs", MS_REMOUNT, "size=16m");
    } else if (fault.call == "file_size") {
        const rlimit none{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &none);
    } else if (fault.call == "signals") {
        storm(false);
    }
}

// Writes a line to the log and one to the echo, so that the reports of lost lines are written, too.
// This program has a stand-in for the log, so the library's function is called directly.
void next_lines() {
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const int kept[] = {dup(STDOUT_FILENO), dup(STDERR_FILENO)};
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    reinterpret_cast<decltype(&zxlog_innerapi_file)>(dlsym(RTLD_NEXT, "zxlog_innerapi_file"))(
        "next\r\n");
    flag_stdPrint = 1;
    zxmd_api_isFileExsit(nullptr);
    flag_stdPrint = 0;
    complaints();
    dup2(kept[0], STDOUT_FILENO);
    dup2(kept[1], STDERR_FILENO);
    for (const int fd : {null, kept[0], kept[1]}) {
        close(fd);
    }
}

// The scenario's result. It is empty when the thread was cancelled.
std::string run_in_thread(const Scenario& scenario) {
    std::pair<const Scenario&, std::string> work{scenario, ""};
    const auto run = [](void* argument) -> void* {
        auto& [what, told] = *static_cast<decltype(work)*>(argument);
        told = what.run();
        return nullptr;
    };
    pthread_t thread;
    pthread_create(&thread, nullptr, run, &work);
    pthread_join(thread, nullptr);
    return work.second;
}

Story run_with(const Scenario& scenario, const Fault& fault) {
    clear_directory();
    std::fflush(nullptr);
    std::istringstream told_by_child(in_child([&] {
        alarm(kMaxSeconds);
        LogCapture log;
        g_log = &log;
        hinder(fault);
        const std::string before = holdings();
        arm(fault);
        std::string told =
            fault.mode == Fails::cancelled ? run_in_thread(scenario) : scenario.run();
        count_calls(false);
        unhinder(fault);
        told += kSeparator + complaints();
        const std::vector<std::string> said = std::exchange(g_said, {});
        next_lines();
        clear_directory();
        told += kSeparator + scenario.run();
        told += kSeparator + before + " then " + holdings() + kSeparator;
        for (std::string line : said) {
            for (std::size_t at; (at = line.find(g_directory)) != std::string::npos;) {
                line.replace(at, g_directory.size(), "DIR");
            }
            told += "> " + line + (line.ends_with('\n') ? "" : "\n");
        }
        return told;
    }));
    Story run;
    for (std::string* part : {&run.result, &run.log, &run.again, &run.left, &run.said}) {
        std::getline(told_by_child, *part, kSeparator);
    }
    for (const Fallible& call : hooked_calls()) {
        if (call.seen > 0) {
            run.calls.emplace(call.name, call);
        }
    }
    return run;
}

class CallsTest : public testing::Test {
protected:
    CallsTest() {
        g_directory = folder.path();
        unsetenv("ZX_DIAG");  // one scenario is about the diagnosis
        EXPECT_EQ(take_over_calls(), std::vector<std::string>())
            << "neither in the table of faults.cpp nor known to need no fault";
    }
    const Folder folder;
};

class FaultTest : public CallsTest, public testing::WithParamInterface<const Scenario*> {};

// A row of outcomes.txt. The first row of a scenario is the one without a fault. Its `log` has all
// lines.
struct Outcome {
    std::string calls, result, log;
    bool has_happened = false;

    [[nodiscard]] bool fits(const Fault& fault, const Story& run, const Story& untouched) const {
        return calls.find(Said("", fault.call, "")) != std::string::npos &&
               run.result == (result != "=" ? result : untouched.result) &&
               (log != "=" ? run.log.find(log) != std::string::npos : run.log == untouched.log);
    }
};

std::vector<Outcome> outcomes_of(const std::string& scenario) {
    std::vector<Outcome> rows;
    std::ifstream file(ZX_OUTCOMES);
    const std::string title = "[" + scenario + "]";
    std::string line;
    while (!line.starts_with(title) && std::getline(file, line)) {
    }
    rows.push_back({"", line.substr(std::min(title.size() + 1, line.size())), "", true});
    while (std::getline(file, line) && !line.empty()) {
        if (line.starts_with("> ")) {
            rows[0].log += line + "\n";
            continue;
        }
        const std::size_t first = line.find('|'), second = line.find('|', first + 1);
        rows.push_back({Said("", line.substr(0, first), ""),
                        line.substr(first + 1, second - first - 1), line.substr(second + 1)});
    }
    return rows;
}

// True when the lines match the patterns, in which "*" is anything within a line.
bool are_like(const std::string& said, const std::string& patterns) {
    std::istringstream lines(said), wanted(patterns);
    bool are = true;
    for (std::string line, pattern; are && !(lines.eof() && wanted.eof());) {
        std::getline(lines, line);
        std::getline(wanted, pattern);
        for (std::size_t at = 0; (at = pattern.find('[', at)) != std::string::npos; at += 3) {
            pattern.replace(at, 1, "[[]");
        }
        are = fnmatch(pattern.c_str(), line.c_str(), FNM_NOESCAPE) == 0;
    }
    return are;
}

// Makes one call fail at each of its places. Returns the number of places.
int judge(const Scenario& scenario, const Fallible& call, Fails mode, const Story& untouched,
          std::vector<Outcome>& rows) {
    for (int nth = 1; call.most == 0 || nth <= std::abs(call.most); ++nth) {
        const Fault fault{call.name, nth, mode};
        const Story run = run_with(scenario, fault);
        const auto seen = run.calls.find(call.name);
        const bool is_call = call.seen > 0;
        if (is_call && (seen == run.calls.end() || seen->second.seen < nth)) {
            return nth - 1;  // nothing failed: there are no more calls
        }
        constexpr const char* kModes[] = {"never", "once", "onwards", "cancelled"};
        SCOPED_TRACE(Said(call.name, nth, kModes[static_cast<int>(mode)]));
        const bool is_untouched = run.result == untouched.result && run.log == untouched.log;
        bool found = mode == Fails::cancelled || (is_untouched && (call.is_release || !is_call));
        for (Outcome& row : rows) {
            if (row.fits(fault, run, untouched)) {
                found = row.has_happened = true;
            }
        }
        EXPECT_TRUE(found) << "gives \"" << run.result << "\" with \"" << run.log << "\"";
        EXPECT_EQ(run.again, untouched.result);
        EXPECT_EQ(run.left, untouched.left);
    }
    return std::abs(call.most);
}

TEST_P(FaultTest, LeadsToWhatIsDocumented) {
    const Scenario& scenario = *GetParam();
    if (scenario.name == std::string("user") && geteuid() != 0) {
        GTEST_SKIP() << "only an administrator may do that";
    }
    const Story untouched = run_with(scenario, {});
    std::vector<Outcome> rows = outcomes_of(scenario.name);
    EXPECT_EQ(untouched.result, rows[0].result);
    EXPECT_EQ(untouched.again, rows[0].result);
    EXPECT_TRUE(are_like(untouched.said, rows[0].log)) << "said:\n" << untouched.said;
    int faults = 0;
    for (const auto& [name, call] : untouched.calls) {
        if (call.can_fail) {
            faults += judge(scenario, call, Fails::once, untouched, rows);
            faults += call.most < 0 ? 0 : judge(scenario, call, Fails::onwards, untouched, rows);
        }
        if (call.is_cancellation_point) {
            faults += judge(scenario, call, Fails::cancelled, untouched, rows);
        }
    }
    const auto makes = [&](const auto&... names) {
        return (untouched.calls.contains(names) || ...);
    };
    const bool is_written = makes("fwrite", "write", "syscall", "system");
    const std::pair<Fallible, bool> hindrances[] = {
        {{"disk", 5, 0, false, false, false}, is_written && geteuid() == 0},
        {{"file_size", 5, 0, false, false, false}, is_written},
        {{"signals", 3, 0, false, false, false}, makes("system", "popen")}};
    for (const auto& [what, is_met] : hindrances) {
        std::vector<Outcome> hindered = outcomes_of(std::string(what.name) + " " + scenario.name);
        if (is_met) {
            faults += judge(scenario, what, Fails::once, untouched, hindered);
            faults += what.name == "file_size"
                          ? judge(scenario, what, Fails::onwards, untouched, hindered)
                          : 0;
            rows.insert(rows.end(), hindered.begin(), hindered.end());
        }
    }
    for (const Outcome& row : rows) {
        EXPECT_TRUE(row.has_happened)
            << row.calls << "never gives \"" << row.result << "\" with \"" << row.log << "\"";
    }
    RecordProperty("faults", faults);
    std::printf("%d faults\n", faults);
}

TEST_F(CallsTest, AllThatCanFailAreMade) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only an administrator makes them all";
    }
    std::set<std::string_view> missing;
    for (const Fallible& call : hooked_calls()) {
        if (call.can_fail) {
            missing.insert(call.name);
        }
    }
    for (const Scenario* scenario : Scenario::all()) {
        for (const auto& [name, call] : run_with(*scenario, {}).calls) {
            missing.erase(name);
        }
    }
    EXPECT_EQ(missing, std::set<std::string_view>());
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest, testing::ValuesIn(Scenario::all()),
                         [](const auto& parameter) { return parameter.param->name; });

}  // namespace
}  // namespace zx::test
