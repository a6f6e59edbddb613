// Every call of the libraries that can fail fails, at each of its places: once, and from there on.
#include "faults.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "child.hpp"
#include "log_capture.hpp"

namespace zx::test {

namespace {

LogCapture* g_log;

}  // namespace

std::string complaints() {
    std::string text;
    for (const std::string& line : g_log->take()) {
        text += line.starts_with("[ERROR]") || line.starts_with("[WARN]") ? line + ";" : "";
    }
    return text;
}

namespace {

constexpr unsigned kMaxSeconds = 30;
constexpr char kSeparator = '\x1f';

struct Story {
    std::string result, log;
    std::string again;  // the result of a second run, without the fault
    std::string left;   // what the libraries hold behind that
    std::map<std::string_view, Fallible> calls;
};

void clear_directory() {
    std::filesystem::remove_all(g_directory);
    std::filesystem::create_directory(g_directory);
}

Story run_with(const Scenario& scenario, const Fault& fault) {
    clear_directory();
    std::fflush(nullptr);
    std::istringstream told_by_child(in_child([&] {
        alarm(kMaxSeconds);
        LogCapture log;
        g_log = &log;
        const std::string before = holdings();
        arm(fault);
        std::string told = scenario.run();
        count_calls(false);
        told += kSeparator + complaints();
        clear_directory();
        told += kSeparator + scenario.run();
        return told + kSeparator + before + " then " + holdings();
    }));
    Story run;
    for (std::string* part : {&run.result, &run.log, &run.again, &run.left}) {
        std::getline(told_by_child, *part, kSeparator);
    }
    for (const Fallible& call : fallible_calls()) {
        if (call.seen > 0) {
            run.calls.emplace(call.name, call);
        }
    }
    return run;
}

class CallsTest : public testing::Test {
protected:
    CallsTest() {
        char name[] = "/tmp/zxfaults_XXXXXX";
        g_directory = mkdtemp(name);
        EXPECT_EQ(take_over_calls(), std::vector<std::string>())
            << "neither in the table of faults.cpp nor known to need no fault";
    }
    ~CallsTest() override { std::filesystem::remove_all(g_directory); }
};

class FaultTest : public CallsTest, public testing::WithParamInterface<const Scenario*> {};

// A row of outcomes.txt; the first of a scenario is the untouched one.
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
    const std::string title = "[" + scenario + "] ";
    std::string line;
    while (!line.starts_with(title) && std::getline(file, line)) {
    }
    rows.push_back({"", line.substr(std::min(title.size(), line.size())), "", true});
    while (std::getline(file, line) && !line.empty()) {
        const std::size_t first = line.find('|'), second = line.find('|', first + 1);
        rows.push_back({Said("", line.substr(0, first), ""),
                        line.substr(first + 1, second - first - 1), line.substr(second + 1)});
    }
    return rows;
}

// Lets one call fail at each of its places; returns how many these were.
int judge(const Scenario& scenario, const Fallible& call, Fails mode, const Story& untouched,
          std::vector<Outcome>& rows) {
    for (int nth = 1; call.most == 0 || nth <= std::abs(call.most); ++nth) {
        const Fault fault{call.name, nth, mode};
        const Story run = run_with(scenario, fault);
        const auto seen = run.calls.find(call.name);
        if (seen == run.calls.end() || seen->second.seen < nth) {
            return nth - 1;  // nothing failed: there are no more calls
        }
        SCOPED_TRACE(Said(call.name, nth, mode == Fails::once ? "once" : "onwards"));
        bool found = call.is_release && run.result == untouched.result && run.log == untouched.log;
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
    int faults = 0;
    for (const auto& [name, call] : untouched.calls) {
        faults += judge(scenario, call, Fails::once, untouched, rows);
        faults += call.most < 0 ? 0 : judge(scenario, call, Fails::onwards, untouched, rows);
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
    for (const Fallible& call : fallible_calls()) {
        missing.insert(call.name);
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
