// The options from the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "filter/filter.hpp"
#include "show/field_table.hpp"
#include "source/source.hpp"
#include "streams/rtp_source.hpp"
#include "streams/tables.hpp"
#include "write/capture_files.hpp"

namespace capture {

// What is printed for each frame; `dump` is a line and all that the frame engine shows. `streams`
// and `conversations` are tables of all frames; `extract` writes the stream of one flow.
enum class Form { line, dump, json, columns, streams, conversations, extract, none };

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
    std::vector<const Field*> fields;         // of `json` and `columns`
    TablesForm tables = TablesForm::summary;  // of `streams` and `conversations`
    RtpClocks rtp_clocks;
    std::string extracted_flow;  // of `extract`
    TimeForm time;
    Writing writing;
    std::uint64_t max_frames = 0;  // that pass; 0: no limit
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace capture
