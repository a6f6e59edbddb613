#include "options.hpp"

#include <unistd.h>

#include "common/command_line.hpp"
#include "common/number.hpp"
#include "streams/extract.hpp"
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
    bool json = false;
    bool streams = false;
    std::vector<std::string> rtp_clocks;
};

// The payload type and the rate of its clock; the validator returns an error message.
std::string read_clock(const std::string& text, RtpClocks& clocks) {
    const std::size_t end = text.find('=');
    const auto type = tools::parse_number(text.substr(0, end));
    const auto rate = tools::parse_number(end == std::string::npos ? "" : text.substr(end + 1));
    if (!type || *type >= RtpClocks::kTypes || !rate || *rate == 0 || *rate > UINT32_MAX) {
        return "'" + text + "' is not a payload type and a rate such as 97=48000";
    }
    clocks.set(static_cast<std::uint8_t>(*type), static_cast<std::uint32_t>(*rate));
    return "";
}

void define_streams(CLI::App& app, Options& options, Flags& flags) {
    constexpr char kGroup[] = "Streams";
    app.add_flag("--streams", flags.streams,
                 "Show a table of all streams: rates, losses, jitter, continuity; with --json an "
                 "object a second")
        ->group(kGroup);
    app.add_option("--extract", options.extracted_flow,
                   "Write the transport stream of this flow to the file of --write, such as "
                   "239.0.0.1:1234 or '10.0.0.2:5000>239.0.0.1:1234'")
        ->option_text("FLOW")
        ->group(kGroup)
        ->check([](const std::string& text) {
            return read_flow_name(text) ? ""
                                        : "'" + text + "' is not a flow such as 239.0.0.1:1234";
        });
    app.add_option("--rtp-clock", flags.rtp_clocks,
                   "The rate of the RTP clock of a payload type in Hz, such as 97=48000")
        ->option_text("TYPE=RATE")
        ->group(kGroup)
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check([](const std::string& text) {
            RtpClocks clocks;
            return read_clock(text, clocks);
        });
}

// A table is live as long as frames may come: those of a file are there at once.
TablesForm tables_form(const Options& options, const Flags& flags) {
    const bool is_live = options.input_file.empty() || options.input_file == "-";
    return flags.json                              ? TablesForm::json
           : is_live && isatty(STDOUT_FILENO) == 1 ? TablesForm::live
                                                   : TablesForm::summary;
}

void define_output(CLI::App& app, Options& options, Flags& flags) {
    CLI::Option* const dump =
        app.add_flag("-d,--dump", flags.dump, "Print all fields of each frame after its line");
    CLI::Option* const quiet = app.add_flag("-q,--quiet", flags.quiet, "Print only the counts");
    dump->excludes(quiet);
    dump->option_text(kNoText);
    quiet->option_text(kNoText);
    app.add_flag("--json", flags.json, "With --streams: JSON");
    app.add_flag("--utc", options.time.utc, "Print times in UTC instead of local time");
    app.add_flag("--date", options.time.date, "Print the date before the time");
    app.add_option("-w,--write", options.output_file,
                   "Write the frames that pass to a new capture file (-: standard output)")
        ->option_text("FILE");
    app.add_option("-c,--count", options.max_frames, "End after N frames have passed")
        ->option_text("N")
        ->check(CLI::Range(std::uint64_t{1}, UINT64_MAX));
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

Form form_of(const Options& options, const Flags& flags, bool stdout_taken) {
    if (flags.streams) {
        return Form::streams;
    }
    if (!options.extracted_flow.empty()) {
        return Form::extract;
    }
    return flags.quiet || stdout_taken ? Form::none : flags.dump ? Form::dump : Form::line;
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
    define_streams(app, options, flags);
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
    for (const std::string& text : flags.rtp_clocks) {
        read_clock(text, options.rtp_clocks);
    }
    options.tables = tables_form(options, flags);
    if (!options.extracted_flow.empty() && options.output_file.empty()) {
        tools::exit_misused(app, "--extract needs --write FILE for the transport stream");
    }
    options.form = form_of(options, flags, stdout_taken);
    return options;
}

}  // namespace capture
