// The options from the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ctl {

struct Options {
    std::vector<std::string> directories;  // where programs serve
    bool is_directory_named = false;       // by the user
    std::string program;                   // "list": no program is asked
    std::string topic;
    std::vector<std::string> pairs;  // KEY=VALUE
    bool json = false;
    bool clean = false;
    std::int64_t timeout_ms = 0;
    std::uint64_t watch_seconds = 0;  // 0: once
    std::string output_file;          // "-": standard output
    std::uint64_t trace_seconds = 0;
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace ctl
