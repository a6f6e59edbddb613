// The options from the command line.
#pragma once

#include <cstdint>
#include <string>

#include "filter/filter.hpp"
#include "source/source.hpp"
#include "write/capture_files.hpp"

namespace capture {

// What is printed for each frame; `dump` is a line and the fields.
enum class Form { line, dump, none };

struct TimeForm {
    bool utc = false;
    bool date = false;
};

struct Options {
    bool lists_interfaces = false;  // and nothing else
    std::string input_file;         // "-": standard input; empty: a live capture
    Live live;
    Selection selection;
    Wanted wanted;
    Form form = Form::line;
    TimeForm time;
    Writing writing;
    std::uint64_t max_frames = 0;  // that pass; 0: no limit
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace capture
