// What the libraries are put through while their calls fail on demand.
//
// The entries in the libraries' own tables of imports are replaced: what counts and fails are the
// libraries' calls alone, not the test's and not those that the C library makes inside.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace zx::test {

enum class Fails { never, once, onwards, cancelled };

// The n-th counted call of a function is to fail: it alone, or it and all after it; or its thread
// is cancelled there.
struct Fault {
    std::string_view call;
    int nth = 0;
    Fails mode = Fails::never;
};

struct Fallible {
    std::string_view name;
    // Faults worth trying where the number of calls is a matter of time; 0: any number; below 0: as
    // many, but not `onwards`, which would have no end.
    int most;
    int seen;  // counted calls
    bool is_release;
    bool is_cancellation_point;
    bool can_fail;
};

// Where a scenario may write; empty at its start.
extern std::string g_directory;

// Replaces the imports once. Commands and paths are kept within the directory, the clock is fast,
// and nothing of the machine is set; what would have been done is logged after a "$". Returns
// imports that are neither fallible by the table nor known to need no test.
std::vector<std::string> take_over_calls();

// Counts calls from now on, also those of child processes, and lets those of the fault fail.
void arm(const Fault& fault);

// The clock of the libraries, which moves only when they wait.
std::uint64_t clock_us();

// Whether calls count, as the preparation of a scenario does not. Returns what was so before.
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
    std::string (*run)();  // the results of the library's functions, and what they produced
};

#define ZX_SCENARIO(name)                 \
    std::string name();                   \
    const Scenario g_##name(#name, name); \
    std::string name()

// "path" in the directory.
inline std::string in_directory(const char* path) {
    return g_directory + "/" + path;
}

// Values with spaces between them; what is called for them is called in their order.
struct Said : std::string {
    template <typename... Values>
    explicit Said(const Values&... values) {
        std::ostringstream out;
        const char* separator = "";
        ((out << separator << values, separator = " "), ...);
        assign(out.str());
    }
};

// What a function gives for each text, with a space after each.
template <typename Function>
std::string results_of(Function call, std::initializer_list<std::string> texts) {
    std::string results;
    for (const std::string& text : texts) {
        results += Said{call(text.c_str()), ""};
    }
    return results;
}

}  // namespace zx::test
