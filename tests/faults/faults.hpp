// Makes calls of the libraries fail on demand.
//
// The entries in the libraries' own tables of imports are replaced. So only the libraries' calls
// count and fail, not those of the test, and not those that the C library makes inside.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace zx::test {

enum class Fails { never, once, onwards, cancelled };

// The n-th counted call of a function fails, either alone or with all calls after it. Or its thread
// is cancelled there.
struct Fault {
    std::string_view call;
    int nth = 0;
    Fails mode = Fails::never;
};

struct Fallible {
    std::string_view name;
    // How many faults to try when the number of calls depends on time. 0: one for each call. Below
    // 0: that many, but not `onwards`, which would never end.
    int most;
    int seen;  // how many calls were counted
    bool is_release;
    bool is_cancellation_point;
    bool can_fail;
};

// The directory that a scenario may write to. It is empty at the start.
extern std::string g_directory;

// Replaces the imports; call it once. Commands and paths stay within the directory, the clock is
// fast, and no setting of the machine is changed. What would have changed it is logged after a "$".
// Returns imports that the tables do not know.
std::vector<std::string> take_over_calls();

// Counts calls from now on, also those of child processes, and makes those of the fault fail.
void arm(const Fault& fault);

// The clock of the libraries. It moves only when they wait.
std::uint64_t clock_us();

// Sets whether calls count; those that prepare a scenario do not. Returns the old setting.
bool count_calls(bool on);

std::vector<Fallible> hooked_calls();

// What the libraries hold in this process: memory, threads and the like, and open descriptors.
std::string holdings();

// The errors and warnings that were logged in this process so far.
std::string complaints();

struct Scenario {
    Scenario(const char* its_name, std::string (*its_run)()) : name(its_name), run(its_run) {
        all().push_back(this);
    }
    static std::vector<const Scenario*>& all() {
        static std::vector<const Scenario*> scenarios;
        return scenarios;
    }
    const char* name;
    std::string (*run)();  // the results of the library and what it made
};

#define ZX_SCENARIO(name)                 \
    std::string name();                   \
    const Scenario g_##name(#name, name); \
    std::string name()

// The path of a file in the directory.
inline std::string in_directory(const char* path) {
    return g_directory + "/" + path;
}

// Values with spaces between them. In braces, the calls that produce them are made in order.
struct Said : std::string {
    template <typename... Values>
    explicit Said(const Values&... values) {
        std::ostringstream out;
        const char* separator = "";
        ((out << separator << values, separator = " "), ...);
        assign(out.str());
    }
};

// The result of a function for each text, each with a space after it.
template <typename Function>
std::string results_of(Function call, std::initializer_list<std::string> texts) {
    std::string results;
    for (const std::string& text : texts) {
        results += Said{call(text.c_str()), ""};
    }
    return results;
}

}  // namespace zx::test
