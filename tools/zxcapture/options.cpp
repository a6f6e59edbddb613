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

EXPRESSION is as tcpdump has it, compiled by libpcap. In a live capture, the kernel filters by it.

Capture files: zxcapture reads every format that libpcap supports. It writes pcap or pcapng, both
with nanoseconds.

Examples:
  zxcapture --interface eth0 --protocol tcp --port 80
  zxcapture -i eth0 'udp port 1234 and dst net 239.0.0.0/8'
  zxcapture -i any -w ring.pcap -C 100 -W 10
  zxcapture --read trace.pcapng --source-ip 192.168.1.10 --dump
  zxcapture --interface eth0 --mac 00:11:22:aa:bb:cc --count 100 --write part.pcap
  ssh host tcpdump -w - | zxcapture --read - --quiet

A live capture needs root or the capability CAP_NET_RAW. SIGINT (Ctrl-C), SIGTERM and SIGHUP end it.

At the end, zxcapture prints the number of frames to standard error, or to standard output with
--quiet.)";

constexpr char kFiles[] = "Capture files";
constexpr std::uint64_t kMib = 1U << 20U;
constexpr std::uint64_t kMostMib = UINT64_MAX / kMib;
constexpr std::uint32_t kMostBufferKib = INT32_MAX >> 10U;  // libpcap has it in bytes

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
    bool quiet = false;
    bool numeric = false;  // as it always is
    std::size_t time = 0;  // how often each was given
    std::size_t hex = 0;
    bool streams = false;
    bool conversations = false;
    std::string extract{};
    std::vector<std::string> fields{};
    std::vector<std::string> rtp_clocks{};
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

void define_fields(CLI::App& app, Options& options, Flags& flags) {
    app.add_flag("--json", flags.json, "Print a JSON object for each frame, with its fields");
    app.add_option(
           "--fields", flags.fields,
           "Print these fields only, as columns or with --json; such as frame.number,ip.src")
        ->option_text("NAMES")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(validate_field);
    app.add_flag("--list-fields", options.lists_fields, "Print the names of all fields and exit");
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

void define_streams(CLI::App& app, Flags& flags) {
    constexpr char kGroup[] = "Streams";
    app.add_flag("--streams", flags.streams,
                 "Show a table of all streams: rates, losses, jitter, continuity; with --json an "
                 "object a second")
        ->group(kGroup);
    app.add_option("--extract", flags.extract,
                   "Write the transport stream of this flow to the file of --write, such as "
                   "239.0.0.1:1234 or '10.0.0.2:5000>239.0.0.1:1234'")
        ->option_text("FLOW")
        ->group(kGroup)
        ->check([](const std::string& text) {
            return read_flow_name(text) ? ""
                                        : "'" + text + "' is not a flow such as 239.0.0.1:1234";
        });
    app.add_flag("--conversations", flags.conversations,
                 "Show a table of all TCP connections: state, bytes, retransmissions, round trips; "
                 "with --json an object for each")
        ->group(kGroup);
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

// A table is live as long as frames may come: those of a regular file are there at once.
TablesForm tables_form(const Options& options, const Flags& flags) {
    const bool is_live = options.input_file.empty() || !is_regular_file(options.input_file);
    return flags.json                              ? TablesForm::json
           : is_live && isatty(STDOUT_FILENO) == 1 ? TablesForm::live
                                                   : TablesForm::summary;
}

// What is wrong with what is to be printed, or an empty text.
std::string complaint_about(const Flags& flags, bool stdout_taken) {
    const bool has_tables = flags.streams || flags.conversations;
    const bool has_fields = !flags.fields.empty() || (flags.json && !has_tables);
    const bool given[] = {
        flags.dump, flags.quiet, flags.streams, flags.conversations, !flags.extract.empty(),
        has_fields};
    const auto forms = std::ranges::count(given, true);
    if (forms > 1) {
        return "give only one of --dump, --quiet, --streams, --conversations, --extract, and "
               "--json or --fields";
    }
    if (stdout_taken && forms > (flags.quiet ? 1 : 0) && flags.extract.empty()) {
        return "--write - needs standard output for the capture file";
    }
    return "";
}

Form form_of(const Flags& flags, bool stdout_taken) {
    return !flags.extract.empty()        ? Form::extract
           : flags.quiet || stdout_taken ? Form::none
           : flags.streams               ? Form::streams
           : flags.conversations         ? Form::conversations
           : flags.json                  ? Form::json
           : !flags.fields.empty()       ? Form::columns
           : flags.dump                  ? Form::dump
                                         : Form::line;
}

void define_output(CLI::App& app, Options& options, Flags& flags) {
    app.add_flag("-d,--dump", flags.dump, "Print all fields of each frame after its line");
    app.add_flag("-q,--quiet", flags.quiet, "Print only the counts");
    define_lines(app, flags, options.line);
    define_times(app, flags, options.time);
    app.add_flag("-n,--numeric", flags.numeric, "Names are never looked up; this changes nothing")
        ->option_text(kNoText);
    app.add_option("-c,--count", options.max_frames, "End after N frames have passed")
        ->option_text("N")
        ->check([](const std::string& text) {
            return tools::parse_number(text).value_or(0) != 0
                       ? ""
                       : "'" + text + "' is not a number from 1 to " + std::to_string(UINT64_MAX);
        });
}

// How often -t and -X are given says what they mean.
void set_forms(const Flags& flags, Options& options) {
    constexpr Clock kClocks[] = {Clock::day,        Clock::none, Clock::epoch,
                                 Clock::since_line, Clock::day,  Clock::since_first};
    options.time.clock = kClocks[std::min(flags.time, std::size(kClocks) - 1)];
    options.time.date |= flags.time == 4;
    options.line.is_live = !options.live.interface.empty();
    options.line.hex = flags.hex == 0   ? HexForm::none
                       : flags.hex == 1 ? HexForm::packet
                                        : HexForm::frame;
}

void define_sources(CLI::App& app, Options& options) {
    CLI::Option* const file = app.add_option("-r,--read", options.input_file,
                                             "Read frames from a capture file (-: standard input)")
                                  ->option_text("FILE");
    CLI::Option* const interface =
        app.add_option("-i,--interface", options.live.interface,
                       "Capture frames from a network interface (any: from all)")
            ->option_text("NAME");
    file->excludes(interface);
    app.add_flag("-D,--list-interfaces", options.lists_interfaces,
                 "Print the network interfaces and exit")
        ->option_text(kNoText);
    app.add_flag("--promiscuous", options.live.promiscuous,
                 "Also capture frames for other stations")
        ->needs(interface)
        ->option_text(kNoText);
    app.add_option("-B,--buffer-size", options.live.buffer_kib,
                   "Buffer of the kernel for a live capture, in KiB (65536)")
        ->option_text("KIB")
        ->needs(interface)
        ->check(CLI::Range(1U, kMostBufferKib));
    app.add_option("-s,--snapshot-length", options.selection.snapshot_length,
                   "Keep only the first N bytes of each frame (0: all)")
        ->option_text("N")
        ->check(CLI::Range(0U, kLargestFrame));
}

void define_files(CLI::App& app, Writing& writing) {
    CLI::Option* const file =
        app.add_option("-w,--write", writing.path,
                       "Write the frames that pass to a new capture file (-: standard output)")
            ->option_text("FILE")
            ->group(kFiles);
    app.add_flag("--pcapng", writing.pcapng, "Write pcapng, also if FILE does not end in .pcapng")
        ->option_text(kNoText)
        ->group(kFiles)
        ->needs(file);
    app.add_option("-C,--file-size", writing.file_size,
                   "Start the next file before one is larger than MIB (1 MiB: 1048576 bytes)")
        ->option_text("MIB")
        ->group(kFiles)
        ->needs(file)
        ->check(CLI::Range(std::uint64_t{1}, kMostMib));
    app.add_option("-G,--file-seconds", writing.seconds,
                   "Start the next file after this time, with the "
                   "time in its name, such as part-%H%M%S.pcap")
        ->option_text("SECONDS")
        ->group(kFiles)
        ->needs(file)
        ->check(CLI::Range(1U, UINT32_MAX));
    app.add_option("-W,--file-count", writing.file_count,
                   "With -C: after N files, write the first again; with -G: end after N files")
        ->option_text("N")
        ->group(kFiles)
        ->needs(file)
        ->check(CLI::Range(1U, UINT32_MAX));
}

// What is wrong with the files that are to be written, or an empty text.
std::string complaint_about(const Writing& writing, const Flags& flags) {
    const bool is_several = writing.file_size != 0 || writing.seconds != 0;
    if (!flags.extract.empty() && (writing.path.empty() || is_several)) {
        return "--extract needs --write FILE for the transport stream, and one file alone";
    }
    if (writing.path == "-" && is_several) {
        return "--write - is one file: it excludes --file-size and --file-seconds";
    }
    if (writing.path == "-" && isatty(STDOUT_FILENO) == 1) {
        return "cannot write a capture file to a terminal: redirect standard output";
    }
    if (writing.file_count != 0 && !is_several) {
        return "--file-count needs --file-size or --file-seconds";
    }
    if (writing.file_count != 0 && writing.file_size != 0 && writing.seconds != 0) {
        return "--file-count excludes one of --file-size and --file-seconds";
    }
    if (writing.seconds != 0 && writing.path.find('%') == std::string::npos) {
        return "--file-seconds needs a time such as %H%M%S in the name of the file, or each file "
               "replaces the one before it";
    }
    return "";
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

}  // namespace

Options parse_options(int argc, char** argv) {
    Options options;
    Flags flags;
    std::vector<std::string> expression;
    CLI::App app("Shows the frames of a capture file or of a live interface.", "zxcapture");
    tools::define_common(app, zxcommon_api_version());
    define_sources(app, options);
    define_output(app, options, flags);
    define_fields(app, options, flags);
    define_files(app, options.writing);
    define_streams(app, flags);
    define_filters(app, options.wanted);
    app.add_option("EXPRESSION", expression,
                   "Filter expression as tcpdump has it, such as 'udp port 1234'")
        ->option_text(kNoText);
    app.footer(kNotes);
    tools::parse(app, {argv + 1, argv + argc});

    const bool only_lists = options.lists_fields || options.lists_interfaces;
    if (options.input_file.empty() && options.live.interface.empty() && !only_lists) {
        tools::exit_misused(app,
                            "give a capture file (--read FILE) or an interface (--interface NAME)");
    }
    if (options.live.promiscuous && options.live.interface == kAnyInterface) {
        tools::exit_misused(app, "--promiscuous excludes --interface any: it is for one interface");
    }
    Writing& writing = options.writing;
    const bool stdout_taken = writing.path == "-";
    if (const std::string complaint = complaint_about(flags, stdout_taken); !complaint.empty()) {
        tools::exit_misused(app, complaint);
    }
    if (const std::string complaint = complaint_about(writing, flags); !complaint.empty()) {
        tools::exit_misused(app, complaint);
    }
    for (const std::string& text : flags.rtp_clocks) {
        read_clock(text, options.rtp_clocks);
    }
    options.tables = tables_form(options, flags);
    writing.pcapng = writing.pcapng || writing.path.ends_with(".pcapng");
    writing.file_size *= kMib;
    if (options.selection.snapshot_length == 0) {
        options.selection.snapshot_length = kLargestFrame;
    }
    options.selection.expression = joined(expression);
    set_forms(flags, options);
    options.form = form_of(flags, stdout_taken);
    options.extracted_flow = flags.extract;
    options.fields = fields_of(flags);
    return options;
}

}  // namespace capture
