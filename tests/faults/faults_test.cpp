// Every call of the libraries that can fail fails, at each of its places: once, and from there on.
#include "faults.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "child.hpp"
#include "log_capture.hpp"
#include "scenarios.hpp"

namespace zx::test {

std::string g_directory;

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
    std::map<std::string, Fallible> calls;
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
        disarm();
        told += kSeparator + complaints();
        clear_directory();
        told += kSeparator + scenario.run();
        return told + kSeparator + before + " then " + holdings();
    }));
    Story run;
    for (std::string* const part : {&run.result, &run.log, &run.again, &run.left}) {
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
        EXPECT_EQ(take_over_calls(g_directory), std::vector<std::string>())
            << "neither in the table of faults.cpp nor known to need no fault";
    }
    ~CallsTest() override { std::filesystem::remove_all(g_directory); }
};

class FaultTest : public CallsTest, public testing::WithParamInterface<const Scenario*> {};

// A row of outcomes.txt; the first of a scenario is the untouched one.
struct Outcome {
    std::string calls, result, log;
    bool has_happened = false;
};

std::vector<Outcome> outcomes_of(const std::string& scenario) {
    std::vector<Outcome> rows;
    std::ifstream file(ZX_OUTCOMES);
    bool is_there = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with('[')) {
            const std::size_t end = line.find("] ");
            is_there = line.substr(1, end - 1) == scenario;
            if (is_there) {
                rows.push_back({"", line.substr(end + 2), "", true});
            }
        } else if (is_there && !line.empty()) {
            const std::size_t first = line.find('|'), second = line.find('|', first + 1);
            rows.push_back({Said("", line.substr(0, first), ""),
                            line.substr(first + 1, second - first - 1), line.substr(second + 1)});
        }
    }
    return rows;
}

// Finds the rows of a scenario that a fault led to.
class Judge {
public:
    explicit Judge(const Scenario& scenario)
        : scenario_(scenario),
          reference_(run_with(scenario, {})),
          rows_(outcomes_of(scenario.name)) {
        rows_.resize(std::max<std::size_t>(rows_.size(), 1));
        EXPECT_EQ(reference_.result, rows_[0].result);
        EXPECT_EQ(reference_.again, rows_[0].result);
    }
    ~Judge() {
        for (const Outcome& row : rows_) {
            EXPECT_TRUE(row.has_happened)
                << row.calls << "never gives \"" << row.result << "\" with \"" << row.log << "\"";
        }
    }
    Judge(const Judge&) = delete;
    Judge& operator=(const Judge&) = delete;

    [[nodiscard]] const Story& reference() const { return reference_; }

    void judge(const Fault& fault, const Fallible& call, const Story& run) {
        const std::string where = Said(scenario_.name, fault.call, fault.nth,
                                       fault.mode == Fails::once ? "once" : "onwards");
        bool found =
            call.is_release && run.result == reference_.result && run.log == reference_.log;
        for (Outcome& row : rows_) {
            if (fits(row, fault, run)) {
                found = row.has_happened = true;
            }
        }
        EXPECT_TRUE(found) << where << " gives \"" << run.result << "\" with \"" << run.log << "\"";
        EXPECT_EQ(run.again, reference_.result) << "behind " << where;
        EXPECT_EQ(run.left, reference_.left) << "behind " << where;
    }

private:
    [[nodiscard]] bool fits(const Outcome& row, const Fault& fault, const Story& run) const {
        return row.calls.find(Said("", fault.call, "")) != std::string::npos &&
               run.result == (row.result != "=" ? row.result : reference_.result) &&
               (row.log != "=" ? run.log.find(row.log) != std::string::npos
                               : run.log == reference_.log);
    }

    const Scenario& scenario_;
    Story reference_;
    std::vector<Outcome> rows_;
};

TEST_P(FaultTest, LeadsToWhatIsDocumented) {
    const Scenario& scenario = *GetParam();
    if (scenario.is_for_root && geteuid() != 0) {
        GTEST_SKIP() << "only an administrator may do that";
    }
    Judge judge(scenario);
    int faults = 0;
    for (const auto& [name, call] : judge.reference().calls) {
        for (const Fails mode : {Fails::once, Fails::onwards}) {
            if (mode == Fails::onwards && call.most < 0) {
                continue;
            }
            for (int nth = 1; call.most == 0 || nth <= std::abs(call.most); ++nth) {
                const Fault fault{name, nth, mode};
                const Story run = run_with(scenario, fault);
                const auto seen = run.calls.find(name);
                if (seen == run.calls.end() || seen->second.seen < nth) {
                    break;  // nothing failed: there are no more calls
                }
                judge.judge(fault, call, run);
                ++faults;
            }
        }
    }
    RecordProperty("faults", faults);
    std::printf("%d faults\n", faults);
}

std::vector<const Scenario*> all_scenarios() {
    std::vector<const Scenario*> all;
    for (const auto* table : {&kBasicScenarios, &kNetworkScenarios, &kSystemScenarios}) {
        for (const Scenario& scenario : *table) {
            all.push_back(&scenario);
        }
    }
    return all;
}

TEST_F(CallsTest, AllThatCanFailAreMade) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only an administrator makes them all";
    }
    std::set<std::string_view> missing;
    for (const Fallible& call : fallible_calls()) {
        missing.insert(call.name);
    }
    for (const Scenario* scenario : all_scenarios()) {
        for (const auto& [name, call] : run_with(*scenario, {}).calls) {
            missing.erase(name);
        }
    }
    EXPECT_EQ(missing, std::set<std::string_view>());
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest, testing::ValuesIn(all_scenarios()),
                         [](const auto& parameter) { return parameter.param->name; });

}  // namespace
}  // namespace zx::test
