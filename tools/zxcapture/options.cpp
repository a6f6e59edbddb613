#include "options.hpp"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "common/command_line.hpp"
#include "zxcommon.h"
#include "zxframe.h"

namespace capture {
namespace {

constexpr char kNotes[] =
    R"(Filters: all that are given must match. MAC and IP addresses may be lists (--ip 10.0.0.1,10.0.0.2)
of which one must match. Protocol, address and port filters let nothing but IPv4 pass.

Capture files are read in every format that libpcap knows, and written as pcap with nanoseconds.

Examples:
  zxcapture --interface eth0 --protocol tcp --port 80
  zxcapture --read trace.pcapng --source-ip 192.168.1.10 --dump
  zxcapture --interface eth0 --mac 00:11:22:aa:bb:cc --count 100 --write part.pcap
  ssh host tcpdump -w - | zxcapture --read - --quiet

A live capture needs root or the capability CAP_NET_RAW; SIGINT (Ctrl-C) and SIGTERM end it. What was
counted is told at the end, on standard error.)";

constexpr char kNoText[] = " ";  // for the help: no list of options that this one excludes

bool is_mac(const std::string& text) {
    bool good = text.size() == ZXFRAME_MAC_TEXT_SIZE - 1;
    for (std::size_t i = 0; good && i < text.size(); ++i) {
        good =
            i % 3 == 2 ? text[i] == ':' : std::isxdigit(static_cast<unsigned char>(text[i])) != 0;
    }
    return good;
}

// These give the reason why a text is refused, or an empty one. The engine compares texts, so they
// also bring the text into the form that it prints.
std::string take_mac(std::string& text) {
    if (!is_mac(text)) {
        return "'" + text + "' is no MAC address such as 00:11:22:aa:bb:cc";
    }
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return {};
}

std::string take_ip(std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return "'" + text + "' is no IPv4 address such as 192.168.1.10";
    }
    return {};
}

CLI::Option* add_addresses(CLI::App& app, const char* name, std::vector<std::string>& texts,
                           const char* help, std::string (*take)(std::string&)) {
    return app.add_option(name, texts, help)
        ->option_text("ADDRESS")
        ->group("Filters")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->transform(CLI::Validator(take, ""));
}

CLI::Option* add_port(CLI::App& app, const char* name, std::int32_t& port, const char* help) {
    return app.add_option(name, port, help)
        ->option_text("PORT")
        ->group("Filters")
        ->check(CLI::Range(1, 65535));
}

// The engine lets the first of each three hide the other two.
void exclude(CLI::Option* either, std::initializer_list<CLI::Option*> others) {
    for (CLI::Option* const other : others) {
        either->excludes(other);
    }
}

void define_filters(CLI::App& app, Wanted& wanted) {
    CLI::Option* either =
        add_addresses(app, "--mac", wanted.mac, "Source or destination MAC address", take_mac);
    exclude(
        either,
        {add_addresses(app, "--source-mac", wanted.source_mac, "Source MAC address", take_mac),
         add_addresses(app, "--dest-mac", wanted.dest_mac, "Destination MAC address", take_mac)});
    app.add_option("--protocol", wanted.protocol, "tcp or udp")
        ->option_text("NAME")
        ->group("Filters")
        ->transform(CLI::IsMember({"tcp", "udp"}, CLI::ignore_case));
    either = add_addresses(app, "--ip", wanted.ip, "Source or destination IPv4 address", take_ip);
    exclude(either,
            {add_addresses(app, "--source-ip", wanted.source_ip, "Source IPv4 address", take_ip),
             add_addresses(app, "--dest-ip", wanted.dest_ip, "Destination IPv4 address", take_ip)});
    either = add_port(app, "--port", wanted.port, "Source or destination port, TCP or UDP");
    exclude(either, {add_port(app, "--source-port", wanted.source_port, "Source port"),
                     add_port(app, "--dest-port", wanted.dest_port, "Destination port")});
}

struct Flags {
    bool dump = false;
    bool quiet = false;
};

void define_output(CLI::App& app, Options& options, Flags& flags) {
    CLI::Option* const dump =
        app.add_flag("-d,--dump", flags.dump, "Print every field of a frame below its line");
    CLI::Option* const quiet = app.add_flag("-q,--quiet", flags.quiet, "Print the counts only");
    dump->excludes(quiet);
    dump->option_text(kNoText);
    quiet->option_text(kNoText);
    app.add_flag("--utc", options.time.utc, "Print times in UTC instead of local time");
    app.add_flag("--date", options.time.date, "Print the date before the time");
    app.add_option("-w,--write", options.write,
                   "Write what passes to a new capture file; - is standard output")
        ->option_text("FILE");
    app.add_option("-c,--count", options.count, "End after so many frames that passed")
        ->option_text("N")
        ->check(CLI::Range(std::uint64_t{1}, UINT64_MAX));
}

void define_sources(CLI::App& app, Options& options) {
    CLI::Option* const file =
        app.add_option("-r,--read", options.file, "Capture file to read; - is standard input")
            ->option_text("FILE");
    CLI::Option* const interface =
        app.add_option("-i,--interface", options.interface, "Network interface to capture from")
            ->option_text("NAME");
    CLI::Option* const promiscuous = app.add_flag("--promiscuous", options.promiscuous,
                                                  "Capture what is for other stations, too");
    file->excludes(interface);
    promiscuous->needs(interface)->option_text(kNoText);
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    Flags flags;
    CLI::App app("Shows the Ethernet frames of a capture file or of a live interface.",
                 "zxcapture");
    tools::define_common(app, zxcommon_api_version());
    define_sources(app, options);
    define_output(app, options, flags);
    define_filters(app, options.wanted);
    app.footer(kNotes);
    tools::parse(app, argc, argv);

    if (options.file.empty() && options.interface.empty()) {
        tools::end_misused(app,
                           "give a capture file (--read FILE) or an interface (--interface NAME)");
    }
    const bool stdout_taken = options.write == "-";
    if (stdout_taken && flags.dump) {
        tools::end_misused(app, "--write - leaves no place for --dump");
    }
    if (stdout_taken && isatty(STDOUT_FILENO) == 1) {
        tools::end_misused(app,
                           "a capture file is nothing for a terminal: redirect standard output");
    }
    options.form = flags.quiet || stdout_taken ? Form::none : flags.dump ? Form::dump : Form::line;
    return options;
}

}  // namespace capture
