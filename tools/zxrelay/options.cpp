#include "options.hpp"

#include <algorithm>
#include <string>

#include "common/command_line.hpp"
#include "common/failure.hpp"
#include "config/network.hpp"
#include "config/url.hpp"
#include "output/target.hpp"
#include "stream/http_answer.hpp"
#include "stream/token.hpp"
#include "zxcommon.h"

namespace relay {
namespace {

constexpr std::uint64_t kSmallestBuffer = 128U << 10U;  // twice the largest message
constexpr std::uint64_t kLargestBuffer = 1U << 30U;
constexpr std::uint64_t kSmallestMemory = 1U << 20U;
constexpr std::uint64_t kLargestMemory = 1ULL << 40U;
constexpr unsigned kLongestKeep = 86400;
constexpr unsigned kMostSenders = 64;

constexpr unsigned kMostLogs = 1000;

// An empty text would mean the default. A user who wants that leaves the option out.
CLI::Validator is_given() {
    return {[](const std::string& text) { return text.empty() ? "it is empty" : ""; }, ""};
}

constexpr char kNotes[] =
    R"(Sources: A URL says where the stream comes from:
  udp://ADDRESS:PORT         datagrams; if ADDRESS is a multicast address, zxrelay joins the group
  udp://SENDER@GROUP:PORT    datagrams of this sender only (source-specific multicast)
  rtp://ADDRESS:PORT         RTP datagrams, put in order; RTP is recognised with udp://, too
  tcp://ADDRESS:PORT         zxrelay waits for sources that connect, and takes one at a time
  tcp+connect://HOST:PORT    zxrelay connects, and connects again when the stream ends
  http://HOST:PORT/PATH      the same, but by HTTP; https:// is possible, too
  file:///FOLDER/FILE        a file, sent again and again at the speed that its clock references give
  -                          standard input; zxrelay ends when its stream is delivered

Datagrams: --send also sends the stream to these hosts and multicast groups. Repeat it for several:
  udp://ADDRESS:PORT         datagrams of seven packets
  rtp://ADDRESS:PORT         the same, as RTP
  udp://GROUP:PORT?ttl=4&interface=eth0&localaddr=192.0.2.1
                             the number of hops, the network interface and the address to send from

Channels: In the file of --config, each [[channel]] has a name, an input and any of backup, outputs,
interface, keep, client-buffer, fifo-size and source-timeout. What it leaves out is taken from the options.
With [on-demand] and networks = ["239.0.0.0/8"], a client that asks for /udp/GROUP:PORT or /rtp/GROUP:PORT
opens that channel.

Backups: If an input is silent for 2 seconds, the next --backup takes over. When a better input has sent
for 2 seconds again, zxrelay returns to it.

Silent sources: A tcp:// source that has sent no packets for --source-timeout yields when another one
waits. zxrelay leaves a silent tcp+connect:// or http:// server after that time and connects again. As
long as no attempt brings any data, the pauses between attempts grow from 1 to 30 seconds.

Clients: A client that asks by HTTP for /NAME receives the channel of that name; /playlist.m3u lists the
channels. A client that sends nothing for 200 ms receives the stream without HTTP.

Access: With --allow, clients of other networks get the HTTP status 403, and with --max-per-address, further
clients of the same address get 429. With --token, a client asks for /NAME?token=TEXT, or sends the field
"Authorization: Bearer TEXT"; any other client gets 401, even if it does not use HTTP. The command line is
visible to other users of the machine: write the token into the file of --config.

Slow clients: A slow client does not affect the others. If it lags by more than --client-buffer, it
misses whole packets. zxrelay reports how many, in messages of seven packets. If sending lags behind
receiving by more than --fifo-size, a source that sends datagrams loses whole messages for all clients.
Any other source has to wait.

Time shift: With --keep, a client that sends the line "last N", or asks by HTTP for /NAME?last=N,
receives the stream starting N seconds ago. The stream is kept in memory: 30 seconds of 8 Mbit/s take
30 MB. If --memory is used up, zxrelay drops the oldest part of the stream: clients that still need it
miss it, and the time shift gets shorter.

With --senders, each thread keeps the stream for its own clients in its own part of --memory, of at least
256k. So N threads need N times as much memory for the same --keep.

Log: A log file of more than 10 MiB is renamed to FILE.1 within a minute, the older FILE.1 to FILE.2 and
so on, and a new one is started. Clients can cause at most 20 lines of each kind in a minute. The others
are counted, and the log tells their number.

Service: zxrelay opens its sockets and the pid file before it changes to the user of --user. The watchdog
runs as this user, too. The user must be able to write to the log file and to its directory. Under
--watchdog, a worker that dies for any reason is restarted within two seconds. The watchdog ends when the
worker has delivered the stream of --once.

Signals: SIGINT and SIGTERM end zxrelay. On SIGHUP, it opens the log file again and reads the file of
--config again: channels that have not changed go on. On SIGUSR1, it logs the list of its buffers. With
--watchdog, send signals to the watchdog, whose process ID is in the pid file: it passes them on to the
worker.

SIZE is in bytes and may end in k, m or g.

Examples:
  zxrelay --input tcp://0.0.0.0:5000 --output 0.0.0.0:8000
      ffmpeg -re -i film.mp4 -c copy -f mpegts tcp://relay:5000
      ffplay http://relay:8000/stream
  zxrelay --input udp://239.1.1.1:1234 --interface eth0 --output '[::]:8000'
  zxrelay --config /etc/zxrelay.toml --daemon --watchdog --pid-file /run/zxrelay.pid
      where the file has lines such as  log = "/var/log/zxrelay/log"
  zxrelay --input http://studio:8000/news --send 'rtp://239.1.1.1:5004?ttl=4' --output 0.0.0.0:8000)";

// Checks for CLI11: an empty text means that the value is good.
std::string is_word(const std::string& text) {
    const bool is_good =
        !text.empty() && text.find_first_not_of(
                             "0123456789abcdefghijklmnopqrstuvwxyz"
                             "ABCDEFGHIJKLMNOPQRSTUVWXYZ-._~") == std::string::npos;
    return is_good ? "" : "'" + text + "' is not made of letters, digits, '-', '.', '_' and '~'";
}

// In a URL, "." and ".." are no names, and the playlist has a name of its own.
std::string is_channel_name(const std::string& name) {
    const bool is_taken = name == "." || name == ".." || "/" + name == kPlaylistPath;
    return is_taken ? "no channel can have the name '" + name + "'" : is_word(name);
}

std::string is_origin(const std::string& origin) {
    const bool is_good = !origin.empty() && std::all_of(origin.begin(), origin.end(),
                                                        [](char c) { return c > ' ' && c <= '~'; });
    return is_good ? "" : "'" + origin + "' is not an origin";
}

std::string is_token_text(const std::string& text) {
    const std::string fault = is_word(text);
    return fault.empty() && text.size() > kLongestToken ? "'" + text + "' is too long" : fault;
}

// A check that reports what a parser finds wrong with a text.
template <typename Parse>
CLI::Validator parses(const Parse& parse) {
    return {[parse](const std::string& text) -> std::string {
                try {
                    parse(text);
                    return "";
                } catch (const tools::Failure& failure) {
                    return failure.what();
                }
            },
            ""};
}

void define_urls(CLI::App& app, ChannelOptions& channel, const std::string& send) {
    app.add_option("-i,--input", channel.input_url,
                   "Receive the stream here, such as udp://ADDRESS:PORT; see Sources below")
        ->option_text("URL (required)")
        ->check(parses(parse_url));
    app.add_option("--backup", channel.backup_urls,
                   "Receive the stream here while --input is silent; repeat it for several backups")
        ->option_text("URL")
        ->allow_extra_args(false)
        ->check(parses(parse_url));
    app.add_option(send, channel.send_urls,
                   "Send datagrams here, too, such as rtp://GROUP:PORT; see Datagrams below")
        ->option_text("URL")
        ->allow_extra_args(false)
        ->check(parses(parse_target));
    app.add_option("--name", channel.name, "The name of the channel, for HTTP (default stream)")
        ->option_text("NAME")
        ->check(is_channel_name);
}

void define_clients(CLI::App& app, Options& options) {
    app.add_option("-o,--output", options.output_address,
                   "Listen here for the clients that receive the stream")
        ->option_text("ADDRESS:PORT (required)")
        ->required()
        ->check(parses(parse_output));
    app.add_option("--stall", options.stall_timeout_seconds,
                   "Disconnect a client that has accepted no data for this long (default 30)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, 86400U));
    app.add_option("--latency", options.latency_ms,
                   "Send to each client once in this many ms (default 20; 0: send at once)")
        ->option_text("MS")
        ->check(CLI::Range(0U, 1000U));
    app.add_option("--senders", options.senders,
                   "Share the clients among this many threads (default 1)")
        ->option_text("N")
        ->check(CLI::Range(1U, kMostSenders));
    app.add_option("--memory", options.memory_bytes,
                   "Keep at most SIZE bytes of the stream for all clients (default 256m)")
        ->option_text("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(kSmallestMemory, kLargestMemory));
    app.add_option("--max-clients", options.max_clients,
                   "Accept at most N clients (default: as many as the limit of open files allows)")
        ->option_text("N")
        ->check(CLI::Range(1U, 10000000U));
    app.add_option("--cors", options.cors_origin,
                   "Let web pages of this origin read the stream (* for all)")
        ->option_text("ORIGIN")
        ->check(is_origin);
}

void define_access(CLI::App& app, Options& options) {
    app.add_option("--allow", options.allowed_networks,
                   "Accept only clients of this network, such as 10.0.0.0/8; repeat it for more")
        ->option_text("NETWORK")
        ->check(parses(parse_network))
        ->allow_extra_args(false);
    app.add_option("--max-per-address", options.max_per_address,
                   "Accept at most N clients of one address (default: no limit)")
        ->option_text("N")
        ->check(CLI::Range(1U, 10000000U));
    app.add_option("--token", options.token,
                   "Serve only clients that know TEXT, by HTTP; see Access below")
        ->option_text("TEXT")
        ->check(is_token_text);
}

void define_reports(CLI::App& app, Options& options) {
    app.add_option("--status", options.status_address,
                   "Serve a status page here, as HTML, as JSON and for Prometheus")
        ->option_text("ADDRESS:PORT")
        ->check(is_given());
    app.add_option("--status-token", options.status_token,
                   "Let those who know TEXT disconnect clients on the status page")
        ->option_text("TEXT")
        ->check(is_token_text);
    app.add_flag("--inside", options.inside,
                 "Count locks, buffers and FIFOs, and show them on the page /inside of --status")
        ->needs("--status")
        ->option_text(" ");
    app.add_flag("--stats", options.print_stats,
                 "Print statistics even if standard output is not a terminal");
    app.add_option("--log", options.log_file, "Write the log to FILE (default: standard error)")
        ->option_text("FILE")
        ->check(is_given());
    app.add_option("--log-keep", options.log_keep, "Keep this many renamed log files (default 5)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1U, kMostLogs));
    app.add_option("--log-level", options.log_level,
                   "Set the log level, from 0 (nothing) to 5 (debug) (default 3, notices)")
        ->option_text("LEVEL")
        ->check(CLI::Range(0U, 5U));
}

void define_service(CLI::App& app, Options& options) {
    app.add_flag("--daemon", options.daemon, "Run in the background as a daemon (requires --log)")
        ->needs("--log")
        ->option_text(" ");
    app.add_flag("--watchdog", options.watchdog,
                 "Restart the relay within two seconds if it dies for any reason");
    app.add_option("--user", options.run_as_user, "Run as this user")
        ->option_text("NAME")
        ->check(is_given());
    app.add_option("--pid-file", options.pid_file, "Write the process ID to FILE")
        ->option_text("FILE")
        ->check(is_given());
}

}  // namespace

std::vector<std::string> input_urls(const ChannelOptions& options) {
    std::vector<std::string> urls = options.backup_urls;
    urls.insert(urls.begin(), options.input_url);
    return urls;
}

void define_channel(CLI::App& app, ChannelOptions& channel, const std::string& send) {
    define_urls(app, channel, send);
    app.add_option("--source-timeout", channel.source_timeout_seconds,
                   "Give up a silent source after this long (default 10)")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, 86400U));
    app.add_option("--interface", channel.interface,
                   "Join a multicast group on this network interface")
        ->option_text("NAME");
    app.add_option("--fifo-size", channel.fifo_bytes,
                   "Let sending lag behind receiving by up to SIZE bytes (default 4m)")
        ->option_text("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(kSmallestBuffer, kLargestBuffer));
    app.add_option("--client-buffer", channel.client_buffer_bytes,
                   "Let each client lag by up to SIZE bytes (default 1m)")
        ->option_text("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(kSmallestBuffer, kLargestBuffer));
    app.add_option("--keep", channel.keep_seconds,
                   "Keep the last SECONDS of the stream for clients that ask for it")
        ->option_text("SECONDS")
        ->check(CLI::Range(1U, kLongestKeep));
}

void define_on_demand(CLI::App& app, OnDemandOptions& options) {
    app.add_option("--networks", options.networks)->check(parses(parse_group_network));
    app.add_option("--interface", options.interface);
    app.add_option("--linger", options.linger_seconds)->check(CLI::Range(0U, 86400U));
    app.add_option("--most", options.most)->check(CLI::Range(1U, 10000U));
}

void define(CLI::App& app, Options& options) {
    tools::define_common(app, zxcommon_api_version());
    define_channel(app, options.channel, "--send");
    app.add_flag(
        "--once", options.channel.once,
        "Relay one stream from a TCP source, a server or a file, and end when it is delivered");
    define_clients(app, options);
    define_access(app, options);
    define_reports(app, options);
    define_service(app, options);
    app.footer(kNotes);
}

}  // namespace relay
