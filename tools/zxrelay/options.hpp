// What the command line and the configuration file ask for.
#pragma once

#include <cstdint>
#include <string>

namespace relay {

struct Options {
    std::string input;
    std::string output;
    std::string interface;
    std::string status;
    std::string log_file;
    unsigned log_level = 3;
    std::uint64_t fifo_size = 4U << 20U;
    std::uint64_t client_buffer = 1U << 20U;
    unsigned stall_sec = 30;
    bool once = false;
    bool stats = false;
    unsigned keep_sec = 0;  // 0: no time-shift store
    bool daemon = false;
    bool watchdog = false;
    std::string user;      // empty: who started the relay
    std::string pid_file;  // empty: none
};

// Prints help or version, or a sentence on what is wrong, and ends the program where these are all
// there is to do.
Options parse_options(int argc, char** argv);

}  // namespace relay
