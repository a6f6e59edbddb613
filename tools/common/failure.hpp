// What ends the program: one sentence for the person who started it.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>

namespace tools {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What was not possible, with the reason that the last system call gave.
[[nodiscard]] inline Failure system_failure(const std::string& what) {
    return Failure(what + ": " + std::strerror(errno));
}

// Runs the program's work and turns what went wrong into a sentence and an exit code.
template <typename Work>
int run(const char* name, const Work& work) {
    try {
        work();
        return EXIT_SUCCESS;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", name, failure.what());
        return EXIT_FAILURE;
    }
}

}  // namespace tools
