#include "options.hpp"

#include <unistd.h>

#include <filesystem>

#include "common/command_line.hpp"
#include "zxcommon.h"

namespace relay {
namespace {

constexpr std::uint64_t kSmallestBuffer = 128U << 10U;  // twice the largest message
constexpr std::uint64_t kLargestBuffer = 1U << 30U;

constexpr unsigned kLongestKeep = 2147;  // seconds; the shared list counts microseconds in 31 bits

constexpr char kExamples[] =
    R"(The input is tcp://ADDRESS:PORT or udp://ADDRESS:PORT; a multicast group is joined. Sizes take k, m
and g. What lags too far behind loses whole messages of seven packets, which are counted and logged.

Examples:
  zxrelay --input tcp://0.0.0.0:5000 --output 0.0.0.0:8000
      ffmpeg -re -i film.mp4 -c copy -f mpegts tcp://relay:5000
      ffplay tcp://relay:8000
  zxrelay --input udp://239.1.1.1:1234 --interface eth0 --output '[::]:8000'

  zxrelay --config /etc/zxrelay.conf --daemon --watchdog --pid-file /run/zxrelay.pid
      where the file has lines like  log = "/var/log/zxrelay/log"

A client that sends the line "last N" receives, from then on, what came N seconds before and all
that follows, as far as --keep holds it. The store takes as much memory as comes in so many seconds:
30 s of 8 Mbit/s are 30 MB.

A log file above 10 MiB is renamed within a minute and begun anew. With --user, its directory must
be writable for that user. Sockets and the pid file are opened before the user is changed.

SIGINT and SIGTERM end the relay, SIGUSR1 logs the memory that it holds. A watchdog, whose number is
in the pid file, passes them on; it starts a worker again whatever ended it, but for --once when the
stream is delivered.)";

void define_service(CLI::App& app, Options& options) {
    app.add_flag("--daemon", options.daemon, "Work in the background, detached")->needs("--log");
    app.add_flag("--watchdog", options.watchdog, "Start the relay again within 2 s when it dies");
    app.add_option("--user", options.user, "Work as this user")->option_text("NAME");
    app.add_option("--pid-file", options.pid_file, "File for the number of the process")
        ->option_text("FILE");
}

void define(CLI::App& app, Options& options) {
    tools::define_common(app, zxcommon_api_version());
    app.set_config("--config", "", "Read options from an INI or TOML file")
        ->option_text("FILE")
        ->check(CLI::ExistingFile);
    app.add_option("-i,--input", options.input,
                   "Source: tcp:// waits for its client, udp:// receives")
        ->option_text("URL (required)")
        ->required();
    app.add_option("-o,--output", options.output, "Where clients connect to receive the stream")
        ->option_text("ADDRESS:PORT (required)")
        ->required();
    app.add_option("--status", options.status, "Serve a status page here, as HTML and JSON")
        ->option_text("ADDRESS:PORT");
    app.add_option("--interface", options.interface,
                   "Network interface that joins a multicast group")
        ->option_text("NAME");
    app.add_option("--fifo-size", options.fifo_size,
                   "Bytes that the sender may lag behind (default 4m)")
        ->option_text("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(kSmallestBuffer, kLargestBuffer));
    app.add_option("--client-buffer", options.client_buffer,
                   "Bytes that a client may lag behind (default 1m)")
        ->option_text("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(kSmallestBuffer, kLargestBuffer));
    app.add_option("--stall", options.stall_sec,
                   "Disconnect a client that takes nothing so long (default 30)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, 86400U));
    app.add_flag("--once", options.once, "End when the first TCP source is delivered");
    app.add_flag("--stats", options.stats, "Print statistics also when the output is no terminal");
    app.add_option("--log", options.log_file, "Log file (default: standard error)")
        ->option_text("FILE");
    app.add_option("--log-level", options.log_level,
                   "From 0, off, to 5, debug (default 3, notices)")
        ->option_text("LEVEL")
        ->check(CLI::Range(0U, 5U));
    app.add_option("--keep", options.keep_sec, "Keep the stream of so many seconds for clients")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, kLongestKeep));
    define_service(app, options);
    app.footer(kExamples);
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    CLI::App app("Relays an MPEG transport stream to any number of TCP clients.", "zxrelay");
    define(app, options);
    tools::parse(app, argc, argv);
    if (!options.log_file.empty()) {
        options.log_file = std::filesystem::absolute(options.log_file);
    }
    options.stats = !options.daemon && (options.stats || isatty(STDOUT_FILENO) == 1);
    return options;
}

}  // namespace relay
