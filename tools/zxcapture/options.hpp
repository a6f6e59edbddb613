// What the command line asks for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace capture {

// Which frames pass. Texts are as the engine compares them; several of one kind are alternatives.
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

enum class Form { line, dump, none };

struct TimeForm {
    bool utc = false;
    bool date = false;
};

struct Options {
    std::string file;       // read from, "-" for standard input
    std::string interface;  // or captured from
    bool promiscuous = false;
    Wanted wanted;
    Form form = Form::line;
    TimeForm time;
    std::string write;  // to this capture file, "-" for standard output
    std::uint64_t count = 0;
};

// Prints help or version, or a sentence on what is wrong, and ends the program where these are all
// there is to do.
Options parse_options(int argc, char** argv);

}  // namespace capture
