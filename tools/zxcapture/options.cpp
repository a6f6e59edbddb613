#include "options.hpp"

#include <unistd.h>

#include "common/command_line.hpp"
#include "zxcommon.h"

namespace capture {
namespace {

constexpr char kNotes[] =
    R"(Filters: A frame passes if it matches all filters. A MAC or IP address may be a list such as
10.0.0.1,10.0.0.2, of which one must match. VLAN tags and extension headers do not hide anything.

Capture files: zxcapture reads every format that libpcap supports. It writes pcap with nanoseconds.

Examples:
  zxcapture --interface eth0 --protocol tcp --port 80
  zxcapture --read trace.pcapng --source-ip 192.168.1.10 --dump
  zxcapture --interface eth0 --mac 00:11:22:aa:bb:cc --count 100 --write part.pcap
  ssh host tcpdump -w - | zxcapture --read - --quiet

A live capture needs root or the capability CAP_NET_RAW. SIGINT (Ctrl-C) and SIGTERM end it.

At the end, zxcapture prints the number of frames to standard error, or to standard output with
--quiet.)";

constexpr char kNoText[] = " ";  // keeps the excluded options out of the help text

// The validators return an error message, which is empty if the text is valid.
std::string validate_mac(const std::string& text) {
    return check_mac(text) ? "" : "'" + text + "' is not a MAC address such as 00:11:22:aa:bb:cc";
}

std::string validate_ip(const std::string& text) {
    return check_ip(text) ? ""
                          : "'" + text + "' is not an IP address such as 192.168.1.10 or fe80::1";
}

CLI::Option* add_addresses(CLI::App& app, const char* name, std::vector<std::string>& texts,
                           const char* help, std::string (*check)(const std::string&)) {
    return app.add_option(name, texts, help)
        ->option_text("ADDRESS")
        ->group("Filters")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(check);
}

CLI::Option* add_port(CLI::App& app, const char* name, std::int32_t& port, const char* help) {
    return app.add_option(name, port, help)
        ->option_text("PORT")
        ->group("Filters")
        ->check(CLI::Range(1, 65535));
}

void exclude(CLI::Option* either, std::initializer_list<CLI::Option*> others) {
    for (CLI::Option* const other : others) {
        either->excludes(other);
    }
}

void define_filters(CLI::App& app, Wanted& wanted) {
    CLI::Option* either =
        add_addresses(app, "--mac", wanted.mac, "Source or destination MAC address", validate_mac);
    exclude(either, {add_addresses(app, "--source-mac", wanted.source_mac, "Source MAC address",
                                   validate_mac),
                     add_addresses(app, "--dest-mac", wanted.dest_mac, "Destination MAC address",
                                   validate_mac)});
    app.add_option("--protocol", wanted.protocol, "Protocol: tcp, udp, icmp, icmpv6 or igmp")
        ->option_text("NAME")
        ->group("Filters")
        ->transform(CLI::IsMember(filtered_protocols(), CLI::ignore_case));
    either = add_addresses(app, "--ip", wanted.ip, "Source or destination IP address", validate_ip);
    exclude(
        either,
        {add_addresses(app, "--source-ip", wanted.source_ip, "Source IP address", validate_ip),
         add_addresses(app, "--dest-ip", wanted.dest_ip, "Destination IP address", validate_ip)});
    either = add_port(app, "--port", wanted.port, "Source or destination port of TCP or UDP");
    exclude(either,
            {add_port(app, "--source-port", wanted.source_port, "Source port of TCP or UDP"),
             add_port(app, "--dest-port", wanted.dest_port, "Destination port of TCP or UDP")});
}

struct Flags {
    bool dump = false;
    bool quiet = false;
    std::size_t time = 0;  // how often each was given
    std::size_t hex = 0;
};

void define_times(CLI::App& app, Flags& flags, TimeForm& time) {
    app.add_flag("-t", flags.time,
                 "Form of the times: -t none, -tt seconds since 1970, -ttt since the line before, "
                 "-tttt with the date, -ttttt since the first line")
        ->option_text(kNoText);
    app.add_flag("--utc", time.utc, "Print times in UTC instead of local time");
    app.add_flag("--date", time.date, "Print the date before the time");
}

void define_lines(CLI::App& app, Flags& flags, LineForm& line) {
    app.add_flag("-v,--verbose", line.verbose,
                 "Also print fields of IP and TCP, and whether the checksums are right");
    app.add_flag("-e,--link", line.link, "Also print the addresses and the type of the link");
    app.add_flag("-X,--hex", flags.hex,
                 "Print the packet after its line in hexadecimal digits and as text; -XX: the "
                 "whole frame")
        ->option_text(kNoText);
}

void define_output(CLI::App& app, Options& options, Flags& flags) {
    CLI::Option* const dump =
        app.add_flag("-d,--dump", flags.dump, "Print all fields of each frame after its line");
    CLI::Option* const quiet = app.add_flag("-q,--quiet", flags.quiet, "Print only the counts");
    dump->excludes(quiet);
    dump->option_text(kNoText);
    quiet->option_text(kNoText);
    define_lines(app, flags, options.line);
    define_times(app, flags, options.time);
    app.add_option("-w,--write", options.output_file,
                   "Write the frames that pass to a new capture file (-: standard output)")
        ->option_text("FILE");
    app.add_option("-c,--count", options.max_frames, "End after N frames have passed")
        ->option_text("N")
        ->check(CLI::Range(std::uint64_t{1}, UINT64_MAX));
}

// How often -t and -X are given says what they mean.
void set_forms(const Flags& flags, Options& options) {
    constexpr Clock kClocks[] = {Clock::day,        Clock::none, Clock::epoch,
                                 Clock::since_line, Clock::day,  Clock::since_first};
    options.time.clock = kClocks[std::min(flags.time, std::size(kClocks) - 1)];
    options.time.date |= flags.time == 4;
    options.line.hex = flags.hex == 0   ? HexForm::none
                       : flags.hex == 1 ? HexForm::packet
                                        : HexForm::frame;
}

void define_sources(CLI::App& app, Options& options) {
    CLI::Option* const file = app.add_option("-r,--read", options.input_file,
                                             "Read frames from a capture file (-: standard input)")
                                  ->option_text("FILE");
    CLI::Option* const interface = app.add_option("-i,--interface", options.interface,
                                                  "Capture frames from a network interface")
                                       ->option_text("NAME");
    CLI::Option* const promiscuous = app.add_flag("--promiscuous", options.promiscuous,
                                                  "Also capture frames for other stations");
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
    tools::parse(app, {argv + 1, argv + argc});

    if (options.input_file.empty() && options.interface.empty()) {
        tools::exit_misused(app,
                            "give a capture file (--read FILE) or an interface (--interface NAME)");
    }
    const bool stdout_taken = options.output_file == "-";
    if (stdout_taken && flags.dump) {
        tools::exit_misused(app, "--dump and --write - cannot both use standard output");
    }
    if (stdout_taken && isatty(STDOUT_FILENO) == 1) {
        tools::exit_misused(app,
                            "cannot write a capture file to a terminal: redirect standard output");
    }
    set_forms(flags, options);
    options.form = flags.quiet || stdout_taken ? Form::none : flags.dump ? Form::dump : Form::line;
    return options;
}

}  // namespace capture
