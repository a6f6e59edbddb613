// Writes the transport stream that one flow carries.
#pragma once

#include <optional>
#include <string>

#include "common/rtp_order.hpp"
#include "show/printer.hpp"
#include "streams/flow.hpp"
#include "write/sink.hpp"

namespace capture {

// A place of the network; all of its flow when there are two.
struct End {
    Address address;
    std::uint16_t port = 0;
    bool operator==(const End&) const = default;
};
struct FlowName {
    std::optional<End> source;
    End dest;
};

// "239.0.0.1:1234", "10.0.0.2:5000>239.0.0.1:1234"; IPv6 addresses in brackets. Nothing: the text
// is no such name.
[[nodiscard]] std::optional<FlowName> read_flow_name(const std::string& text);

// A payload is whole packets, or RTP with such packets, which are put into order.
class Extract final : public Printer {
public:
    // `name` is good. The file at `path` (-: standard output) is made when the first packet
    // comes; it must not be the one that is `read`.
    Extract(const std::string& name, const std::string& path, const std::optional<FileId>& read);

    // These throw a Failure if there are several such flows, if a packet was captured in part, or
    // if the file cannot be written; and OutputClosed if it is a pipe whose reader has closed it.
    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;
    void refresh(Output& output) override;

    // Says on standard error what was written. Throws a Failure if it is nothing.
    void finish(Output& output) override;

private:
    struct Ends {
        End source;
        Vlans vlans;
        bool operator==(const Ends&) const = default;
    };

    [[nodiscard]] bool is_wanted(const Packet& packet) const;
    void check_ends(const Packet& packet);
    void take(std::span<const std::uint8_t> payload, std::int64_t now_us);
    void write(std::span<const std::uint8_t> packets);

    const std::string name_;
    const std::string path_;
    const std::optional<FileId> read_;
    const FlowName wanted_;
    std::optional<Ends> ends_;  // of the first packet
    std::optional<Sink> sink_;
    tools::RtpOrder order_;
    std::uint64_t bytes_ = 0;
    std::uint64_t skipped_ = 0;     // datagrams
    std::uint64_t fragmented_ = 0;  // datagrams
};

}  // namespace capture
