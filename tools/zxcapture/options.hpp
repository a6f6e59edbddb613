// The options from the command line.
#pragma once

#include <cstdint>
#include <string>

#include "filter/filter.hpp"
#include "streams/rtp_source.hpp"
#include "streams/tables.hpp"

namespace capture {

// What is printed for each frame; `dump` is a line and the fields. `streams` are tables of all
// frames; `extract` writes one of their streams.
enum class Form { line, dump, streams, extract, none };

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
    TablesForm tables = TablesForm::summary;  // of `streams`
    RtpClocks rtp_clocks;
    std::string extracted_flow;  // of `extract`
    TimeForm time;
    std::string output_file;       // "-": standard output; empty: no capture file is written
    std::uint64_t max_frames = 0;  // that pass; 0: no limit
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace capture
