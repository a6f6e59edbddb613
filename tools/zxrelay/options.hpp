// The options from the command line and the configuration file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace relay {

struct Options {
    std::string input_url;
    std::vector<std::string> backup_urls;
    std::string output_address;
    std::string multicast_interface;  // empty: the kernel chooses
    std::string status_address;       // empty: no status page
    std::string log_file;             // empty: standard error
    unsigned log_keep = 5;            // renamed log files
    unsigned log_level = 3;
    std::uint64_t fifo_bytes = 4U << 20U;
    std::uint64_t client_buffer_bytes = 1U << 20U;
    unsigned source_timeout_seconds = 10;
    unsigned stall_timeout_seconds = 30;
    unsigned keep_seconds = 0;  // 0: no time shift
    unsigned latency_ms = 20;
    unsigned senders = 1;
    std::uint64_t memory_bytes = 256U << 20U;
    unsigned max_clients = 0;  // 0: as many as there are descriptors for
    std::string channel_name = "stream";
    std::string cors_origin;  // empty: no page of another site may read the stream
    std::vector<std::string> allowed_networks;  // empty: all
    unsigned max_per_address = 0;               // 0: no limit
    std::string token;  // empty: clients need none, and the status page disconnects nobody
    bool end_after_first_source = false;
    bool print_stats = false;
    bool daemon = false;
    bool watchdog = false;
    std::string run_as_user;  // empty: the user who starts zxrelay
    std::string pid_file;     // empty: no pid file
};

// Parses the command line. Ends the program after --help and --version, and after an error message
// when the command line is wrong.
Options parse_options(int argc, char** argv);

}  // namespace relay
