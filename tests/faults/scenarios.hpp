// What the libraries are put through while their calls fail.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace zx::test {

struct Scenario {
    const char* name;
    std::string (*run)();  // the results of the library's functions, and what they produced
    bool is_for_root = false;
};

extern const std::vector<Scenario> kBasicScenarios;
extern const std::vector<Scenario> kNetworkScenarios;
extern const std::vector<Scenario> kSystemScenarios;

// Where a scenario may write; empty at its start.
extern std::string g_directory;

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

// The errors and warnings that were logged in this process so far.
std::string complaints();

}  // namespace zx::test
