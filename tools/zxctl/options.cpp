#include "options.hpp"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>

#include "common/command_line.hpp"
#include "common/number.hpp"
#include "zxcommon.h"

namespace ctl {
namespace {

constexpr char kNotes[] =
    R"(PROGRAM is a name, a process id or the path of a socket. A program serves when the environment
variable ZX_DIAG named a directory at its start, or when it calls zxdiag_api_serve().

TOPIC:
  locks          each lock: its holder, how often it was taken, the longest waits
  waits          who waits for whom; deadlocks; locks that are taken in two orders
  memory         tracked buffers by name and place [mark=NAME] [since=NAME] [by=name|place]
  fifos          each FIFO: use, rates, what was lost
  lists          each shared list and the time that it spans
  threads        each thread: processor time, state, what it waits for
  descriptors    open descriptors by kind
  log            the last lines in memory [lines=N] [level=L] [tag=T]
  tail           the lines of the log as they come, until Ctrl-C [level=L] [tag=T]
  level, tags    change the log for a while: level=L seconds=S, tags=T seconds=S
  dump           write the lines in memory to the log
  trace SECONDS  record what the threads do, as a file for Chrome or Perfetto (needs --output)
  top            a live screen of threads, locks, FIFOs and memory
  help           everything that the program can be asked

Examples:
  zxctl list
  zxctl zxrelay waits
  zxctl zxrelay memory --watch 10
  zxctl 4711 trace 5 --output trace.json
  zxctl zxrelay locks --json | jq '.locks[] | select(.held)'

Exit status: 0 for an answer, 1 without an answer or if the program calls the question wrong, 2 if the
command line is wrong.)";

constexpr char kNoText[] = " ";  // keeps the types of values out of the help text
constexpr std::size_t kLongestQuestion = 1024;
constexpr std::uint64_t kMostSeconds = 86400;

void take_directories(Options& options, const std::string& named) {
    const char* const environment = std::getenv("ZX_DIAG");
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    options.is_directory_named = !named.empty();
    if (!named.empty()) {
        options.directories = {named};
    } else if (environment != nullptr && *environment != '\0') {
        options.directories = {environment};
    } else {
        options.directories = {"/run/zxdiag"};
        if (runtime != nullptr && *runtime != '\0') {
            options.directories.push_back(std::string(runtime) + "/zxdiag");
        }
    }
}

// "trace 5" is "trace seconds=5".
void take_seconds(const CLI::App& app, Options& options) {
    constexpr std::string_view kKey = "seconds=";
    if (!options.pairs.empty() && tools::parse_number(options.pairs.front())) {
        options.pairs.front().insert(0, kKey);
    }
    const auto found = std::ranges::find_if(
        options.pairs, [&](const std::string& pair) { return pair.starts_with(kKey); });
    if (found != options.pairs.end()) {
        const std::string_view number = std::string_view(*found).substr(kKey.size());
        options.trace_seconds = tools::parse_number(number).value_or(0);
    }
    if (options.trace_seconds == 0 || options.trace_seconds > kMostSeconds) {
        tools::exit_misused(app, "trace needs a number of seconds, from 1 to 86400: trace 5");
    }
    if (options.output_file.empty() && !options.json) {
        tools::exit_misused(app, "trace needs a file: --output FILE");
    }
    if (options.output_file == "-" && isatty(STDOUT_FILENO) == 1) {
        tools::exit_misused(app, "cannot write a trace to a terminal: redirect standard output");
    }
}

void check_question(const CLI::App& app, const Options& options) {
    const auto is_bad = [](unsigned char c) { return c <= ' ' || c == 0x7F; };
    std::size_t size = options.topic.size();
    bool has_bad = std::ranges::any_of(options.topic, is_bad);
    for (const std::string& pair : options.pairs) {
        size += 1 + pair.size();
        has_bad = has_bad || std::ranges::any_of(pair, is_bad);
        if (pair.find('=') == std::string::npos) {
            tools::exit_misused(app, "'" + pair + "' does not have the form KEY=VALUE");
        }
    }
    if (has_bad || size > kLongestQuestion) {
        tools::exit_misused(
            app, has_bad ? "a question cannot contain blanks" : "the question is too long");
    }
}

void check_fitting(const CLI::App& app, const Options& options) {
    const bool is_list = options.program == "list" && options.topic.empty();
    const auto refuse = [&](bool is_given, const char* option, const char* where) {
        if (is_given) {
            tools::exit_misused(app, std::string(option) + " only fits " + where);
        }
    };
    refuse(options.clean && !is_list, "--clean", "'list'");
    refuse(options.watch_seconds != 0 && options.topic != "memory", "--watch", "'memory'");
    refuse(!options.output_file.empty() && options.topic != "trace", "--output", "'trace'");
    refuse(!options.pairs.empty() && options.topic == "top", "KEY=VALUE",
           "other topics than 'top'");
    if (options.program.empty()) {
        tools::exit_misused(app, "say which program and what about it, or 'list'");
    }
    if (options.topic.empty() && !is_list) {
        tools::exit_misused(app, "say what about '" + options.program + "', such as 'locks'");
    }
    if (options.topic == "top" && !options.json &&
        (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1)) {
        tools::exit_misused(app, "top needs a terminal, or --json");
    }
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    std::string directory;
    double timeout = 5;
    CLI::App app("Asks running programs about their locks, memory, queues, threads and log.",
                 "zxctl");
    tools::define_common(app, zxcommon_api_version());
    app.add_option("PROGRAM", options.program, "The program to ask, or 'list': who can be asked")
        ->option_text(kNoText);
    app.add_option("TOPIC", options.topic, "What to ask")->option_text(kNoText);
    app.add_option("KEY=VALUE", options.pairs, "What exactly")->option_text(kNoText);
    app.add_option(
           "--dir", directory,
           "Where programs serve (default: the environment variable ZX_DIAG, else /run/zxdiag "
           "and $XDG_RUNTIME_DIR/zxdiag)")
        ->option_text("DIR");
    app.add_flag("--json", options.json, "Print the answers as they come, one a line")
        ->option_text(kNoText);
    app.add_flag("--clean", options.clean, "With list: remove sockets that nobody serves")
        ->option_text(kNoText);
    app.add_option("--timeout", timeout, "How long to wait for an answer (default: 5)")
        ->option_text("SECONDS")
        ->check(CLI::Range(0.001, static_cast<double>(kMostSeconds)));
    app.add_option("--watch", options.watch_seconds,
                   "With memory: show again and again what is more than at the start")
        ->option_text("SECONDS")
        ->check(CLI::Range(std::uint64_t{1}, kMostSeconds));
    app.add_option("-o,--output", options.output_file,
                   "With trace: the file to write (-: standard output)")
        ->option_text("FILE");
    app.footer(kNotes);
    tools::parse(app, {argv + 1, argv + argc});

    take_directories(options, directory);
    if (std::isnan(timeout)) {  // it is in every range, and no integer
        tools::exit_misused(app, "--timeout: not a number");
    }
    constexpr double kMilli = 1000;
    options.timeout_ms = static_cast<std::int64_t>(timeout * kMilli);
    check_fitting(app, options);
    if (options.topic == "trace") {
        take_seconds(app, options);
    }
    check_question(app, options);
    return options;
}

}  // namespace ctl
