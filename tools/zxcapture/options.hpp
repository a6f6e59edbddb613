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

// Which time the line of a frame begins with.
enum class Clock {
    day,          // the time of the day
    none,         // nothing
    epoch,        // seconds since 1970
    since_line,   // since the line before
    since_first,  // since the first line
};

struct TimeForm {
    bool utc = false;
    bool date = false;  // before the time of the day
    Clock clock = Clock::day;
};

// The bytes after the line of a frame.
enum class HexForm { none, packet, frame };

// What a line shows beside the usual.
struct LineForm {
    bool verbose = false;  // fields of IP and TCP, and checksums
    bool link = false;     // the addresses and the type of the link
    bool is_live = false;  // the frames are from this host, whose interfaces have names
    HexForm hex = HexForm::none;
};

struct Options {
    bool lists_interfaces = false;  // and nothing else
    bool lists_fields = false;      // likewise
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
    LineForm line;
    Writing writing;
    std::uint64_t max_frames = 0;  // that pass; 0: no limit
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace capture
