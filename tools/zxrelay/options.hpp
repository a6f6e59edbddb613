// The options from the command line and the configuration file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace relay {

// A channel, as it is asked for.
struct ChannelOptions {
    std::string name = "stream";
    std::string input_url;
    std::vector<std::string> backup_urls;
    std::vector<std::string> send_urls;  // where its datagrams go
    std::string interface;               // for multicast groups; empty: the kernel chooses
    unsigned source_timeout_seconds = 10;
    std::uint64_t fifo_bytes = 4U << 20U;
    std::uint64_t client_buffer_bytes = 1U << 20U;
    unsigned keep_seconds = 0;  // 0: no time shift
    bool once = false;          // it ends after the first source

    bool operator==(const ChannelOptions&) const = default;
};

// The inputs of a channel, the main one first.
std::vector<std::string> input_urls(const ChannelOptions& options);

// Channels that clients open by naming the address of their datagrams.
struct OnDemandOptions {
    std::vector<std::string> networks;  // of these addresses; none: nothing is opened
    std::string interface;
    unsigned linger_seconds = 10;  // after the last client
    unsigned most = 64;            // at a time

    bool operator==(const OnDemandOptions&) const = default;
};

struct Options {
    ChannelOptions channel;  // of the command line, or what channels of the file leave out
    std::string output_address;
    std::string status_address;  // empty: no status page
    std::string log_file;        // empty: standard error
    unsigned log_keep = 5;       // renamed log files
    unsigned log_level = 3;
    unsigned stall_timeout_seconds = 30;
    unsigned latency_ms = 20;
    unsigned senders = 1;
    std::uint64_t memory_bytes = 256U << 20U;
    unsigned max_clients = 0;  // 0: as many as there are descriptors for
    std::string cors_origin;   // empty: no page of another site may read the stream
    std::vector<std::string> allowed_networks;  // empty: all
    unsigned max_per_address = 0;               // 0: no limit
    std::string token;                          // empty: clients need none
    std::string status_token;                   // empty: the status page disconnects nobody
    bool inside = false;                        // count locks, buffers and FIFOs
    bool print_stats = false;
    bool daemon = false;
    bool watchdog = false;
    std::string run_as_user;  // empty: the user who starts zxrelay
    std::string pid_file;     // empty: no pid file

    bool operator==(const Options&) const = default;
};

// Define the options of the command line, and those of a channel. `send` is the option for where
// datagrams go.
void define(CLI::App& app, Options& options);
void define_channel(CLI::App& app, ChannelOptions& channel, const std::string& send);
void define_on_demand(CLI::App& app, OnDemandOptions& options);

}  // namespace relay
