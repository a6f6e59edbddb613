#include "decoder.hpp"

#include <algorithm>
#include <cstring>

namespace capture {
namespace {

std::string joined(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) {
        list += (list.empty() ? "" : ",") + text;
    }
    return list;
}

}  // namespace

Decoder::Decoder(const Wanted& wanted)
    : wanted_(wanted),
      texts_{joined(wanted.mac), joined(wanted.source_mac), joined(wanted.dest_mac),
             joined(wanted.ip),  joined(wanted.source_ip),  joined(wanted.dest_ip)},
      filter_(std::make_unique<frame_filter_ctt>()) {
    filter_->mac = texts_[0].c_str();
    filter_->source_mac = texts_[1].c_str();
    filter_->dest_mac = texts_[2].c_str();
    filter_->ip = texts_[3].c_str();
    filter_->source_ip = texts_[4].c_str();
    filter_->dest_ip = texts_[5].c_str();
    filter_->protocol = wanted_.protocol.c_str();
    filter_->port = wanted_.port;
    filter_->source_port = wanted_.source_port;
    filter_->dest_port = wanted_.dest_port;

    const bool macs = !texts_[0].empty() || !texts_[1].empty() || !texts_[2].empty();
    const bool packets =
        !wanted_.protocol.empty() || !texts_[3].empty() || !texts_[4].empty() || !texts_[5].empty();
    const bool ports = wanted_.port > 0 || wanted_.source_port > 0 || wanted_.dest_port > 0;
    needed_depth_ = ports     ? Depth::transport
                    : packets ? Depth::network
                    : macs    ? Depth::ethernet
                              : Depth::none;
    filters_ports_only_ = ports && !packets;
}

bool Decoder::passes(const Frame& frame) {
    const std::size_t size = std::min(frame.bytes.size(), start_.size());
    std::copy_n(frame.bytes.begin(), size, start_.begin());
    std::fill(start_.begin() + static_cast<std::ptrdiff_t>(size), start_.end(), std::uint8_t{0});
    layers_ = find_layers(frame);
    if (layers_.depth < needed_depth_) {
        return false;
    }

    ether_ctt& record = filter_->frame;
    record.tcp.option_count = 0;
    // If the engine has no name for this frame, it leaves the name of an earlier one.
    record.ether_type_name[0] = '\0';
    record.ipv4.ip_proto_name[0] = '\0';
    if (zxframe_api_filterFrame(nullptr, start_.data(), filter_.get()) == 0) {
        return false;
    }
    // The engine's filter ignores ports without another condition. This function of it checks them.
    if (filters_ports_only_ && zxframe_innerapi_filterFrameByIp(nullptr, filter_.get()) == 0) {
        return false;
    }
    if (filter_->active == 0) {
        zxframe_api_doFrame(&record, start_.data());
    }
    decode_ipv6();
    return has_exact_addresses();
}

// The engine searches for a frame's address within its texts, so the filter "192.168.1.10" also
// passes 192.168.1.1. This checks that the address is one of those in the list. MAC addresses need
// no check, because all texts have the same length.
bool Decoder::has_exact_addresses() const {
    const auto is_one_of = [this](const std::vector<std::string>& texts, bool source, bool dest) {
        return texts.empty() || std::ranges::any_of(texts, [&](const std::string& text) {
                   return zxframe_api_is_IparpOrIpaddr(&record(), source ? text.c_str() : nullptr,
                                                       dest ? text.c_str() : nullptr) == 1;
               });
    };
    return is_one_of(wanted_.ip, true, true) && is_one_of(wanted_.source_ip, true, false) &&
           is_one_of(wanted_.dest_ip, false, true);
}

// The engine does not decode IPv6, but the TCP and UDP headers after it are the same. The engine
// takes the length of a TCP payload from the IPv4 fields, so these are set first.
void Decoder::decode_ipv6() {
    if (layers_.type != kTypeIpv6 || layers_.depth != Depth::transport) {
        return;
    }
    ether_ctt& record = filter_->frame;
    record.ipv4.header_len = kIpv6HeaderSize / 4;
    record.ipv4.total_len =
        static_cast<std::uint16_t>(layers_.payload_at + layers_.payload - ZXFRAME_ETHERNET_SIZE);
    const std::uint8_t* const header = start_.data() + layers_.transport_at;
    if (layers_.protocol == kProtocolUdp) {
        zxframe_innerapi_parseUdp(&record, header, nullptr);
    } else {
        zxframe_innerapi_parseTcp(&record, header, layers_.flaw == Flaw::none ? header : nullptr);
    }
}

void Decoder::dump(const Frame& frame) {
    ether_ctt& record = filter_->frame;
    record.print_flag = 1;
    record.tcp.option_count = 0;
    if (layers_.flaw == Flaw::none && !layers_.later_fragment) {
        copy_payload(frame);
        zxframe_api_doFrame(&record, start_.data());
        decode_ipv6();
    } else {
        dump_captured_headers();
    }
    record.print_flag = 0;
}

void Decoder::dump_captured_headers() {
    ether_ctt& record = filter_->frame;
    if (layers_.depth >= Depth::ethernet) {
        zxframe_innerapi_parseEthrt(&record, start_.data());
    }
    if (layers_.depth >= Depth::network && layers_.type == kTypeIpv4) {
        zxframe_innerapi_parseIpv4(&record, start_.data() + ZXFRAME_ETHERNET_SIZE);
    }
    if (layers_.depth == Depth::transport && layers_.protocol == kProtocolTcp) {
        zxframe_innerapi_parseTcp(&record, start_.data() + layers_.transport_at, nullptr);
    }
}

// The engine dumps the payload of a UDP packet from `data`, with the length in the UDP header.
void Decoder::copy_payload(const Frame& frame) {
    if (layers_.depth == Depth::transport && layers_.protocol == kProtocolUdp) {
        std::uint8_t(&data)[ZXFRAME_DATA_SIZE] = filter_->frame.data;
        const std::size_t size = std::min(captured_payload(frame), sizeof data);
        std::memcpy(data, frame.bytes.data() + layers_.payload_at, size);
        std::memset(data + size, 0, sizeof data - size);
    }
}

std::size_t Decoder::captured_payload(const Frame& frame) const {
    const std::size_t captured =
        frame.bytes.size() - std::min(frame.bytes.size(), layers_.payload_at);
    return std::min<std::size_t>(captured, layers_.payload);
}

}  // namespace capture
