// The exception that ends a program: an error message for the user.
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

// A Failure with the text of `errno` after `what`.
[[nodiscard]] inline Failure system_failure(const std::string& what) {
    return Failure(what + ": " + std::strerror(errno));
}

// Runs the program's work. Prints an exception as an error message and returns the exit status.
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
