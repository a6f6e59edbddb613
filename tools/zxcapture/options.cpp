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
    bool json = false;
    bool list_fields = false;
    bool quiet = false;
    std::vector<std::string> fields{};
};

std::string validate_field(const std::string& name) {
    if (find_field(name) != nullptr) {
        return "";
    }
    std::string sentence = "'" + name + "' is not a field";
    const char* before = "; near it are ";
    for (const std::string_view near : fields_near(name)) {
        sentence.append(before).append(near);
        before = ", ";
    }
    return sentence + "; --list-fields prints all";
}

void define_fields(CLI::App& app, Flags& flags) {
    app.add_flag("--json", flags.json, "Print a JSON object for each frame, with its fields");
    app.add_option(
           "--fields", flags.fields,
           "Print these fields only, as columns or with --json; such as frame.number,ip.src")
        ->option_text("NAMES")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(validate_field);
    app.add_flag("--list-fields", flags.list_fields, "Print the names of all fields and exit");
}

// The fields that are wanted: those that are named, or all. JSON has each one once.
std::vector<const Field*> fields_of(const Flags& flags) {
    std::vector<const Field*> fields;
    for (const std::string& name : flags.fields) {
        const Field* const field = find_field(name);
        if (!flags.json || std::ranges::find(fields, field) == fields.end()) {
            fields.push_back(field);
        }
    }
    if (fields.empty()) {
        std::ranges::transform(all_fields(), std::back_inserter(fields),
                               [](const Field& field) { return &field; });
    }
    return fields;
}

Form form_of(const Flags& flags, bool stdout_taken) {
    return flags.quiet || stdout_taken ? Form::none
           : flags.json                ? Form::json
           : !flags.fields.empty()     ? Form::columns
           : flags.dump                ? Form::dump
                                       : Form::line;
}

void define_output(CLI::App& app, Options& options, Flags& flags) {
    app.add_flag("-d,--dump", flags.dump, "Print all fields of each frame after its line");
    app.add_flag("-q,--quiet", flags.quiet, "Print only the counts");
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

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    Flags flags;
    CLI::App app("Shows the Ethernet frames of a capture file or of a live interface.",
                 "zxcapture");
    tools::define_common(app, zxcommon_api_version());
    define_sources(app, options);
    define_output(app, options, flags);
    define_fields(app, flags);
    define_filters(app, options.wanted);
    app.footer(kNotes);
    tools::parse(app, {argv + 1, argv + argc});

    if (flags.list_fields) {
        std::fputs(field_list().c_str(), stdout);
        std::exit(EXIT_SUCCESS);
    }
    if (options.input_file.empty() && options.interface.empty()) {
        tools::exit_misused(app,
                            "give a capture file (--read FILE) or an interface (--interface NAME)");
    }
    const bool stdout_taken = options.output_file == "-";
    const bool shows_more = flags.dump || flags.json || !flags.fields.empty();
    if (stdout_taken && shows_more) {
        tools::exit_misused(app, "--write - needs standard output for the capture file");
    }
    if (flags.dump + flags.quiet + (flags.json || !flags.fields.empty()) > 1) {
        tools::exit_misused(app, "only one of --dump, --quiet and --json or --fields can be given");
    }
    if (stdout_taken && isatty(STDOUT_FILENO) == 1) {
        tools::exit_misused(app,
                            "cannot write a capture file to a terminal: redirect standard output");
    }
    options.form = form_of(flags, stdout_taken);
    options.fields = fields_of(flags);
    return options;
}

}  // namespace capture
