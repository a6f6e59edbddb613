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
    explicit Text(const std::string& channel) : channel_("{channel=" + quoted(channel) + "}") {}

    // The type follows from the name: all counters end in "_total", and nothing else does.
    void add(std::string_view name, const char* help, const std::string& value,
             const std::string& labels = "") {
        const std::string key(name);
        text_ += "# HELP " + key + " " + help + "\n# TYPE " + key +
                 (name.ends_with("_total") ? " counter\n" : " gauge\n") + key;
        text_ += labels + " " + value + "\n";
    }
    void add_of_channel(std::string_view name, const char* help, std::uint64_t value) {
        add(name, help, std::to_string(value), channel_);
    }
    void add_of_channel(std::string_view name, const char* help, double value) {
        add(name, help, std::to_string(value), channel_);
    }
    [[nodiscard]] std::string take() { return std::move(text_); }

private:
    const std::string channel_;
    std::string text_;
};

double seconds_of(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

std::uint64_t resident_bytes() {
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;  // in pages
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

void add_source(Text& text, const Report& report) {
    const Counters& stats = report.total;
    text.add_of_channel("zxrelay_source_bytes_total", "Bytes received from the source.",
                        stats.bytes_in);
    text.add_of_channel("zxrelay_source_messages_total", "Messages of whole packets received.",
                        stats.messages_in);
    text.add_of_channel("zxrelay_source_skipped_bytes_total",
                        "Bytes of the source that are not transport stream packets.",
                        stats.bytes_no_stream);
    text.add_of_channel("zxrelay_source_dropped_messages_total",
                        "Messages that all clients missed, because the FIFO was full.",
                        stats.dropped_fifo_full);
    text.add_of_channel("zxrelay_source_lost_datagrams_total",
                        "Datagrams of RTP that were sent, but have not arrived.",
                        stats.datagrams_lost);
    text.add_of_channel("zxrelay_source_up", "1 while the source sends.",
                        std::uint64_t{is_receiving(report) ? 1U : 0U});
    text.add_of_channel("zxrelay_fifo_fill_ratio", "How full the FIFO is, from 0 to 1.",
                        report.fifo_fill);
    text.add_of_channel("zxrelay_fifo_size_bytes", "Size of the FIFO.", report.facts.fifo_size);
}

void add_clients(Text& text, const Report& report) {
    const Counters& stats = report.total;
    text.add_of_channel("zxrelay_clients", "Clients that are connected.", stats.clients);
    text.add_of_channel("zxrelay_client_connections_total", "Clients that have connected so far.",
                        report.guests.connections);
    text.add_of_channel("zxrelay_client_refusals_total",
                        "Clients refused because there were too many.",
                        report.guests.refused_clients);
    text.add_of_channel("zxrelay_client_bytes_total", "Bytes sent to clients.", stats.bytes_out);
    text.add_of_channel("zxrelay_client_dropped_messages_total",
                        "Messages that single clients missed, because they were too slow.",
                        stats.dropped_slow_client);
    text.add_of_channel("zxrelay_store_bytes", "Bytes kept for clients that ask for the past.",
                        report.snapshot.stored_bytes);
    text.add_of_channel("zxrelay_store_nodes", "Pieces in which they are kept.",
                        std::uint64_t{report.snapshot.stored_nodes});
}

void add_process(Text& text, const Report& report) {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    text.add("zxrelay_build_info", "Always 1; the label tells the version.", "1",
             "{version=" + quoted(zxcommon_api_version()) + "}");
    text.add("zxrelay_uptime_seconds", "Time since the relay began to work.",
             std::to_string(report.uptime_sec));
    text.add("process_cpu_seconds_total", "Processor time of the relay.",
             std::to_string(seconds_of(used.ru_utime) + seconds_of(used.ru_stime)));
    text.add("process_resident_memory_bytes", "Memory of the relay.",
             std::to_string(resident_bytes()));
}

}  // namespace

std::string to_metrics(const Report& report) {
    Text text(report.facts.channel);
    add_source(text, report);
    add_clients(text, report);
    add_process(text, report);
    return text.take();
}

}  // namespace relay
