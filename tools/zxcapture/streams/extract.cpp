#include "streams/extract.hpp"

#include <arpa/inet.h>

#include "common/failure.hpp"
#include "common/number.hpp"
#include "common/transport_stream.hpp"

namespace capture {
namespace {

using tools::Failure;

std::optional<End> read_end(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    std::string address = text.substr(0, colon);
    End end;
    end.address.is_ipv6 = address.starts_with('[') && address.ends_with(']');
    if (end.address.is_ipv6) {
        address = address.substr(1, address.size() - 2);
    }
    const auto port = tools::parse_number(text.substr(colon + 1));
    const int family = end.address.is_ipv6 ? AF_INET6 : AF_INET;
    if (!port || *port == 0 || *port > UINT16_MAX ||
        inet_pton(family, address.c_str(), end.address.bytes.data()) != 1) {
        return std::nullopt;
    }
    end.port = static_cast<std::uint16_t>(*port);
    return end;
}

std::string text_of(const End& end) {
    const std::string address = text_of(end.address);
    return (end.address.is_ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(end.port);
}

}  // namespace

std::optional<FlowName> read_flow_name(const std::string& text) {
    const std::size_t arrow = text.find('>');
    const std::optional<End> dest =
        read_end(arrow == std::string::npos ? text : text.substr(arrow + 1));
    if (!dest || arrow == std::string::npos) {
        return dest ? std::optional(FlowName{std::nullopt, *dest}) : std::nullopt;
    }
    const std::optional<End> source = read_end(text.substr(0, arrow));
    return source ? std::optional(FlowName{source, *dest}) : std::nullopt;
}

Extract::Extract(const std::string& name, const std::string& path,
                 const std::optional<FileId>& read)
    : name_(name),
      path_(path),
      read_(read),
      wanted_(read_flow_name(name).value()),
      order_([this](std::span<const std::uint8_t> packets) { write(packets); }) {}

void Extract::add(const Frame& frame, const Packet& packet, std::uint64_t number, Output&) {
    if (!is_wanted(packet)) {
        return;
    }
    check_ends(packet);
    if (packet.first_fragment) {  // the others have no ports
        ++fragmented_;
        return;
    }
    const std::span<const std::uint8_t> payload = captured_payload(frame, packet);
    if (payload.size() < packet.payload) {
        throw Failure("frame " + std::to_string(number) + " of " + name_ +
                      " was captured only in part");
    }
    take(payload, microseconds_of(frame.time));
}

bool Extract::is_wanted(const Packet& packet) const {
    return packet.depth == Depth::transport && packet.transport == Transport::udp &&
           End{packet.dest, packet.dest_port} == wanted_.dest &&
           (!wanted_.source || End{packet.source, packet.source_port} == *wanted_.source);
}

void Extract::check_ends(const Packet& packet) {
    const Ends ends{{packet.source, packet.source_port}, vlans_of(packet)};
    if (!ends_) {
        ends_ = ends;
    } else if (ends.source != ends_->source) {
        throw Failure("several sources send to " + name_ + ": name one, such as '" +
                      text_of(ends_->source) + ">" + name_ + "' or '" + text_of(ends.source) + ">" +
                      name_ + "'");
    } else if (ends != *ends_) {
        throw Failure(name_ + " is in the VLANs " + text_of(ends_->vlans) + " and " +
                      text_of(ends.vlans) + ": select one with a filter");
    }
}

void Extract::take(std::span<const std::uint8_t> payload, std::int64_t now_us) {
    const auto now = static_cast<std::uint64_t>(now_us);
    if (tools::is_transport_stream(payload)) {
        write(payload);
    } else if (const auto rtp = tools::parse_stream_rtp(payload)) {
        order_.feed(*rtp, now);
        order_.expire(now);
    } else {
        ++skipped_;
    }
}

void Extract::write(std::span<const std::uint8_t> packets) {
    if (!sink_) {
        sink_.emplace(path_, read_);
    }
    sink_->add(packets);
    sink_->end_record();
    bytes_ += packets.size();
}

void Extract::refresh(Output&) {
    if (sink_) {
        sink_->flush();
    }
}

void Extract::finish(Output& output) {
    order_.finish();
    refresh(output);
    if (bytes_ == 0) {
        throw Failure(skipped_ != 0 ? name_ +
                                          " is no transport stream: its datagrams are neither "
                                          "whole packets nor RTP with such packets"
                      : fragmented_ != 0 ? "the datagrams of " + name_ + " are in fragments"
                                         : "there is no packet of " + name_);
    }
    std::fprintf(stderr, "%s: %llu packets written", name_.c_str(),
                 static_cast<unsigned long long>(bytes_ / tools::kPacketSize));
    const std::pair<std::uint64_t, const char*> troubles[] = {
        {order_.lost(), "datagrams are missing"},
        {order_.unused(), "datagrams came twice or too late"},
        {fragmented_, "datagrams in fragments left out"},
        {skipped_, "other datagrams left out"}};
    for (const auto& [count, what] : troubles) {
        if (count != 0) {
            std::fprintf(stderr, ", %llu %s", static_cast<unsigned long long>(count), what);
        }
    }
    std::fputc('\n', stderr);
}

}  // namespace capture
