// The options from the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace capture {

// The conditions of the filters. A frame passes if it meets all of them; of a list of addresses, it
// must meet one. The texts have the form that the frame engine compares.
struct Wanted {
    std::vector<std::string> mac{};
    std::vector<std::string> source_mac{};
    std::vector<std::string> dest_mac{};
    std::string protocol{};
    std::vector<std::string> ip{};
    std::vector<std::string> source_ip{};
    std::vector<std::string> dest_ip{};
    std::int32_t port = 0;
    std::int32_t source_port = 0;
    std::int32_t dest_port = 0;
};

// What is printed for each frame; `dump` is a line and the fields.
enum class Form { line, dump, none };

struct TimeForm {
    bool utc = false;
    bool date = false;
};

struct Options {
    std::string input_file;  // "-": standard input; empty: capture from the interface
    std::string interface;
    bool promiscuous = false;
    Wanted wanted;
    Form form = Form::line;
    TimeForm time;
    std::string output_file;       // "-": standard output; empty: no capture file is written
    std::uint64_t max_frames = 0;  // that pass; 0: no limit
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace capture
