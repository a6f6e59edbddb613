// Feeds any stream, in any pieces, to what reads a stranger's bytes first: the relay's packetizer,
// its order of RTP datagrams, its request readers and its parser of URLs. Models receive the same.
#include <bitset>
#include <map>
#include <optional>
#include <vector>

#include "common/failure.hpp"
#include "common/rtp_order.hpp"
#include "common/transport_stream.hpp"
#include "config/network.hpp"
#include "config/url.hpp"
#include "input/packetizer.hpp"
#include "stream/http_answer.hpp"
#include "stream/http_request.hpp"
#include "stream/request.hpp"
#include "support.hpp"

namespace {

using relay::kMessageSize;
using relay::kPacketSize;
using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::uint8_t kSync = 0x47;
using Content = std::vector<std::uint8_t>;

struct PacketModel {
    Content held;
    Content emitted;
    bool is_in_step = false;

    void feed(std::uint8_t byte) {
        held.push_back(byte);
        if (!is_in_step && held.size() > 2 * kPacketSize) {
            is_in_step = held[0] == kSync && held[kPacketSize] == kSync && byte == kSync;
            take(is_in_step ? 2 * kPacketSize : 0);
            held.erase(held.begin(), held.begin() + (is_in_step ? 0 : 1));
        }
        if (is_in_step && held[0] != kSync) {
            is_in_step = false;
        }
        take(is_in_step && held.size() == kPacketSize ? kPacketSize : 0);
    }
    void finish() {
        while (held.size() >= kPacketSize && held[0] == kSync) {
            take(kPacketSize);
        }
    }
    void take(std::size_t size) {
        const auto end = held.begin() + static_cast<std::ptrdiff_t>(size);
        emitted.insert(emitted.end(), held.begin(), end);
        held.erase(held.begin(), end);
    }
};

// Makes a stream from the input: packets, each of a single byte value, with any bytes between them.
std::vector<std::uint8_t> stream_of(Input& input) {
    std::vector<std::uint8_t> stream;
    while (!input.empty() && stream.size() < 6 * kMessageSize) {
        const auto what = input.take<std::uint8_t>();
        if (what % 4 == 0) {
            const Bytes noise = input.take_bytes(what / 4);
            stream.insert(stream.end(), noise.begin(), noise.end());
            continue;
        }
        for (int packet = 0; packet < what / 16 + 1; ++packet) {
            stream.push_back(kSync);
            stream.insert(stream.end(), kPacketSize - 1, what % 4 == 1 ? kSync : what);
        }
    }
    return stream;
}

void check_packets(Input& control, const std::vector<std::uint8_t>& stream) {
    Content emitted;
    relay::Packetizer packetizer([&](Bytes message) {
        require(tools::is_transport_stream(message), "whole packets");
        emitted.insert(emitted.end(), message.begin(), message.end());
    });
    PacketModel model;
    for (Bytes rest = stream; !rest.empty();) {
        const std::size_t asked =
            control.empty() ? rest.size() : control.take<std::uint16_t>() % 3000;
        const Bytes piece = rest.first(std::min(asked + 1, rest.size()));
        rest = rest.subspan(piece.size());
        packetizer.feed(piece);
        std::for_each(piece.begin(), piece.end(), [&](std::uint8_t byte) { model.feed(byte); });
        require(emitted == model.emitted, "packets are emitted at once");
    }
    packetizer.finish();
    model.finish();
    require(emitted == model.emitted, "the packets");
    require(emitted.size() + packetizer.skipped() == stream.size(), "every byte is accounted for");
    require(!tools::is_transport_stream(stream) || packetizer.skipped() == 0,
            "packets in step are never skipped");
}

// Numbers that never wrap, in place of those of RTP.
struct OrderModel {
    std::map<std::int64_t, std::pair<std::uint8_t, std::uint64_t>> held;  // content and arrival
    Content emitted;
    std::int64_t next = -1;
    std::uint64_t lost = 0;
    std::uint32_t sender = 0;

    void feed(std::uint16_t sequence, std::uint32_t its_sender, std::uint8_t id,
              std::uint64_t now) {
        std::int64_t number =
            next + static_cast<std::int16_t>(sequence - static_cast<std::uint16_t>(next));
        if (next < 0 || its_sender != sender || number - next >= 3000 || number < next - 64) {
            give_up_to(INT64_MAX);
            next = number = 0x10000 + sequence;
            sender = its_sender;
        }
        if (number >= next && !held.contains(number)) {
            give_up_to(number - 63);
            held[number] = {id, now};
            give_up_to(next);
        }
    }
    // Waits no longer for what is missing before this number.
    void give_up_to(std::int64_t number) {
        while (!held.empty() && (held.begin()->first < number || held.begin()->first == next)) {
            lost += static_cast<std::uint64_t>(held.begin()->first - next);
            emitted.push_back(held.begin()->second.first);
            next = held.begin()->first + 1;
            held.erase(held.begin());
        }
        if (number != INT64_MAX && next < number) {
            lost += static_cast<std::uint64_t>(number - next);
            next = number;
        }
    }
    void expire(std::uint64_t now) {
        const auto is_old = [&](const auto& each) { return now - each.second.second >= 100000; };
        while (std::any_of(held.begin(), held.end(), is_old)) {
            give_up_to(held.begin()->first + 1);
        }
    }
};

// A datagram with parts that its header announces, whose lengths may lie.
Content rtp_datagram(Input& input, std::uint16_t sequence, std::uint32_t sender, std::uint8_t id) {
    const auto shape = input.take<std::uint8_t>();  // padding, extension, contributors
    Content all{static_cast<std::uint8_t>(0x80U | (shape & 0x3fU)), 33};
    const auto add16 = [&](std::uint32_t number) {
        all.insert(all.end(),
                   {static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)});
    };
    add16(sequence);
    all.resize(8);
    add16(sender >> 16U);
    add16(sender);
    all.resize(12 + 4 * (shape & 0x0fU));
    const std::uint8_t words = shape >> 6U;
    if ((shape & 0x10U) != 0) {
        add16(0);
        add16(words);
        all.resize(all.size() + 4U * words);
    }
    const Content packet(kPacketSize, id);
    all.insert(all.end(), packet.begin(), packet.end());
    all[all.size() - kPacketSize] = kSync;
    if ((shape & 0x20U) != 0) {
        all.insert(all.end(), words + 1U, static_cast<std::uint8_t>(words + 1));
    }
    return all;
}

// What RFC 3550 says, without a look at the payload.
std::optional<Bytes> payload_of(Bytes all) {
    if (all.size() < 12 || all[0] >> 6U != 2) {
        return std::nullopt;
    }
    std::size_t begin = 12 + 4U * (all[0] & 0x0fU);
    if ((all[0] & 0x10U) != 0 && begin + 4 <= all.size()) {
        begin += 4U * (all[begin + 2] * 256U + all[begin + 3]) + 4;
    } else if ((all[0] & 0x10U) != 0) {
        return std::nullopt;
    }
    const bool is_padded = (all[0] & 0x20U) != 0;
    const std::size_t padding = is_padded ? all.back() : 0;
    if (begin + padding > all.size() || (is_padded && padding == 0)) {
        return std::nullopt;
    }
    return all.subspan(begin, all.size() - begin - padding);
}

void check_rtp(Input input) {
    Content emitted;
    tools::RtpOrder order([&](Bytes payload) { emitted.push_back(payload[1]); });
    OrderModel model;
    std::uint16_t sequence = 65000;
    std::uint64_t now = 1;
    for (std::uint8_t id = 0; !input.empty(); ++id) {
        const auto what = input.take<std::uint8_t>();
        now += what % 8 == 0 ? input.take<std::uint16_t>() * 4U : 10;
        sequence =
            static_cast<std::uint16_t>(sequence + (what % 8 == 1 ? input.take<std::int16_t>()
                                                                 : input.take<std::int8_t>() / 16));
        Content bytes = rtp_datagram(input, sequence, what % 16 == 2, id);
        if (what % 8 == 3) {
            std::uint8_t& byte = bytes[input.take_below(20)];
            byte = static_cast<std::uint8_t>(byte ^ 1U << input.take_below(8));
        }
        const auto datagram = tools::parse_stream_rtp(bytes);
        const auto payload = payload_of(bytes);
        require(datagram.has_value() == (payload && tools::is_transport_stream(*payload)),
                "what is RTP");
        if (datagram) {
            require(datagram->payload.data() == payload->data() &&
                        datagram->payload.size() == payload->size(),
                    "the payload");
            order.feed(*datagram, now);
            model.feed(datagram->sequence, datagram->sender, datagram->payload[1], now);
        }
        const auto due = order.due_in_us(now);
        require(due.has_value() != model.held.empty(), "whether anything waits");
        order.expire(now);
        model.expire(now);
        require(emitted == model.emitted && order.lost() == model.lost, "the order of datagrams");
    }
    order.finish();
    model.give_up_to(INT64_MAX);
    require(emitted == model.emitted && order.lost() == model.lost, "the last datagrams");
}

void check_url(const std::string& text) {
    try {
        const relay::Url url = relay::parse_url(text);
        const bool has_endpoint = !url.endpoint.port.empty();
        require(!has_endpoint || text.ends_with(":" + url.endpoint.port), "the port");
        require(!has_endpoint || text.find(url.endpoint.host) != std::string::npos, "the host");
        require(text.ends_with(url.path), "the path");
    } catch (const tools::Failure& failure) {
        require(failure.what()[0] == '\'', "a refusal names the text");
    }
}

std::string bits_of(const relay::Address& address) {
    std::string bits;
    for (const std::uint8_t byte : address) {
        bits += std::bitset<8>(byte).to_string();
    }
    return bits;
}

void check_network(Input input, const std::string& text) {
    try {
        const relay::Network network = relay::parse_network(text);
        const std::size_t slash = text.find('/');
        const bool is_ipv4 = text.substr(0, slash).find(':') == std::string::npos;
        const unsigned long prefix = slash == std::string::npos
                                         ? (is_ipv4 ? 32 : 128)
                                         : std::strtoul(text.c_str() + slash + 1, nullptr, 10);
        require(network.prefix == prefix + (is_ipv4 ? 96 : 0), "the size of a network");
        relay::Address other = network.address;
        for (int i = 0; i < 3; ++i) {
            const std::string mine = bits_of(network.address).substr(0, network.prefix);
            require(network.contains(other) == bits_of(other).starts_with(mine), "who is inside");
            const std::size_t bit = input.take_below(128);
            other[bit / 8] = static_cast<std::uint8_t>(other[bit / 8] ^ 1U << bit % 8);
        }
    } catch (const tools::Failure& failure) {
        require(failure.what()[0] == '\'', "a refusal names the text");
    }
}

// A request is "last N" with at most 16 characters, so N has at most eleven digits.
std::optional<std::uint64_t> asked_by(std::string line) {
    if (line.ends_with('\r')) {
        line.pop_back();
    }
    const std::string digits = line.starts_with("last ") ? line.substr(5) : "";
    const bool counts = !digits.empty() && line.size() <= 16 &&
                        digits.find_first_not_of("0123456789") == std::string::npos;
    return counts ? std::optional(std::strtoull(digits.c_str(), nullptr, 10)) : std::nullopt;
}

void check_requests(Input& control, const std::string& text) {
    relay::RequestReader reader;
    std::string line;
    for (std::size_t at = 0; at < text.size();) {
        const std::string piece = text.substr(at, 1 + control.take_below(32));
        at += piece.size();
        std::optional<std::uint64_t> expected;
        for (const char c : piece) {
            if (c != '\n') {
                line += c;
                continue;
            }
            const auto asked = asked_by(line);
            expected = asked ? asked : expected;
            line.clear();
        }
        require(reader.feed(piece) == expected, "what a client asks for");
    }
}

// A reader that gets one byte at a time, beside one that gets all of them at once.
void check_http(const std::string& text) {
    const relay::Site site{{{"a", true}, {"b", false}}, "", ""};
    relay::HttpReader pieces;
    for (const char c : text) {
        if (pieces.request().state != relay::HttpRequest::State::partial) {
            break;
        }
        pieces.feed({&c, 1});
    }
    relay::HttpReader whole;
    whole.feed(text);
    const relay::HttpRequest& got = pieces.request();
    require(got.state == whole.request().state, "how far a request is");
    if (got.state == relay::HttpRequest::State::complete) {
        require(got.path == whole.request().path && got.query == whole.request().query &&
                    got.host == whole.request().host && got.method == whole.request().method,
                "what a request asks for");
    }
    if (got.state != relay::HttpRequest::State::partial) {
        const relay::HttpAnswer answer = relay::answer_to(got, site);
        require(answer.text.starts_with("HTTP/1.1 ") &&
                    answer.text.find("\r\n\r\n") != std::string::npos,
                "an answer");
        require(!answer.channel || *answer.channel < site.channels.size(), "a channel");
        require(
            answer.demanded.empty() || answer.channel || answer.text.starts_with("HTTP/1.1 404 "),
            "a channel that could be opened");
        const relay::HttpAnswer with_token = relay::answer_to(got, {site.channels, "", "secret"});
        require(!with_token.text.starts_with("HTTP/1.1 200 ") ||
                    text.find("secret") != std::string::npos,
                "an answer without the token");
        require(!with_token.channel || with_token.channel == answer.channel, "the same channel");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    Input control(input.take_bytes(32));
    const Bytes rest = input.rest();
    const std::string text(rest.begin(), rest.end());
    check_requests(control, text);
    check_http(text);
    for (const char* const begin : {"", "udp://[ff02::1]:", "rtp://a@b:", "http://", "file:///"}) {
        check_url(begin + std::string(text.c_str()));
    }
    for (const char* const begin : {"", "10.0.", "10.0.0.0/", "2001:db8::/"}) {
        check_network(input, begin + std::string(text.c_str()));
    }
    check_rtp(input);
    check_packets(control, stream_of(input));
    return 0;
}
