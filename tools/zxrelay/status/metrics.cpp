#include "status/metrics.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string_view>

#include "zxcommon.h"

namespace relay {
namespace {

// A text as the value of a label.
std::string quoted(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        out += c == '\n' ? "\\n" : c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return out + '"';
}

class Text {
public:
    // The type follows from the name: all counters end in "_total", and nothing else does.
    void describe(const std::string& name, const char* help) {
        text_ += "# HELP " + name + " " + help + "\n# TYPE " + name +
                 (name.ends_with("_total") ? " counter\n" : " gauge\n");
    }
    void add(const std::string& name, const std::string& value, const std::string& labels = "") {
        text_ += name + labels + " " + value + "\n";
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    std::string text_;
};

// Of the whole relay.
template <typename Number>
void add(Text& text, const char* name, const char* help, Number value) {
    text.describe(name, help);
    text.add(name, std::to_string(value));
}

// One number of each channel: `number_of` gives it.
template <typename NumberOf>
void add_channels(Text& text, const Report& report, const char* name, const char* help,
                  const NumberOf& number_of) {
    text.describe(name, help);
    for (const Track& track : report.tracks) {
        text.add(name, std::to_string(number_of(track)),
                 "{channel=" + quoted(track.channel->name()) + "}");
    }
}

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::uint64_t resident_bytes() {
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;  // in pages
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// A counter of each channel.
void add_counters(Text& text, const Report& report, const char* name, const char* help,
                  std::uint64_t Counters::*counter) {
    add_channels(text, report, name, help,
                 [=](const Track& track) { return track.channel->stats.read().*counter; });
}

void add_source(Text& text, const Report& report) {
    add_counters(text, report, "zxrelay_source_bytes_total", "Bytes received from the source.",
                 &Counters::bytes_in);
    add_counters(text, report, "zxrelay_source_messages_total",
                 "Messages of whole packets received.", &Counters::messages_in);
    add_counters(text, report, "zxrelay_source_skipped_bytes_total",
                 "Bytes of the source that are not transport stream packets.",
                 &Counters::bytes_no_stream);
    add_counters(text, report, "zxrelay_source_dropped_messages_total",
                 "Messages that all clients missed, because the FIFO was full.",
                 &Counters::dropped_fifo_full);
    add_counters(text, report, "zxrelay_source_lost_datagrams_total",
                 "Datagrams of RTP that were sent, but have not arrived.",
                 &Counters::datagrams_lost);
    add_channels(text, report, "zxrelay_source_up", "1 while the source sends.",
                 [](const Track& track) { return is_receiving(track.history) ? 1 : 0; });
    add_channels(text, report, "zxrelay_fifo_fill_ratio", "How full the FIFO is, from 0 to 1.",
                 [](const Track& track) { return track.channel->fill_ratio(); });
    add_channels(text, report, "zxrelay_fifo_size_bytes", "Size of the FIFO.",
                 [](const Track& track) { return track.channel->settings().fifo_bytes; });
}

void add_clients(Text& text, const Report& report) {
    add_counters(text, report, "zxrelay_clients", "Clients that are connected.",
                 &Counters::clients);
    add_counters(text, report, "zxrelay_client_bytes_total", "Bytes sent to clients.",
                 &Counters::bytes_out);
    add_counters(text, report, "zxrelay_client_dropped_messages_total",
                 "Messages that single clients missed, because they were too slow.",
                 &Counters::dropped_slow_client);
    const auto store_of = [&](const Track& track) {
        return stored_of(report.snapshot, track.channel->name());
    };
    add_channels(text, report, "zxrelay_store_bytes",
                 "Bytes kept for clients that lag or ask for the past.",
                 [&](const Track& track) { return store_of(track).bytes; });
    add_channels(text, report, "zxrelay_store_nodes", "Pieces in which they are kept.",
                 [&](const Track& track) { return store_of(track).nodes; });
    add(text, "zxrelay_client_connections_total", "Clients that have connected so far.",
        report.guests.connections.load());
    add(text, "zxrelay_client_refusals_total", "Clients refused by a limit or a list of networks.",
        report.guests.refused_clients.load());
}

void add_process(Text& text, const Report& report) {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    text.describe("zxrelay_build_info", "Always 1; the label tells the version.");
    text.add("zxrelay_build_info", "1", "{version=" + quoted(zxcommon_api_version()) + "}");
    add(text, "zxrelay_uptime_seconds", "Time since the relay began to work.", report.uptime_sec);
    add(text, "process_cpu_seconds_total", "Processor time of the relay.",
        seconds_of(used.ru_utime) + seconds_of(used.ru_stime));
    add(text, "process_resident_memory_bytes", "Memory of the relay.", resident_bytes());
}

}  // namespace

std::string to_metrics(const Report& report) {
    Text text;
    add_source(text, report);
    add_clients(text, report);
    add_process(text, report);
    return text.take();
}

}  // namespace relay
