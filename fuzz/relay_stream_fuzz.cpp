// Feeds any stream, in any pieces, to the relay's packetizer and its request readers. A model
// receives the same bytes one at a time.
#include <optional>
#include <vector>

#include "stream/http_answer.hpp"
#include "stream/http_request.hpp"
#include "stream/packetizer.hpp"
#include "stream/request.hpp"
#include "support.hpp"

namespace {

using relay::kMessageSize;
using relay::kPacketSize;
using zx::fuzz::Bytes;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::uint8_t kSync = 0x47;

struct Model {
    std::vector<std::uint8_t> held;
    std::vector<std::uint8_t> emitted;
    std::uint64_t skipped = 0;

    void feed(std::uint8_t byte) {
        held.push_back(byte);
        if (held[0] == kSync && held.size() == kPacketSize) {
            emit();
        } else if (held.size() == kMessageSize) {
            std::size_t start = 1;
            while (!is_in_step(start)) {
                ++start;
            }
            skip(start);
            while (held.size() >= kPacketSize) {
                emit();
            }
        }
    }
    void emit() {
        const auto end = held.begin() + static_cast<std::ptrdiff_t>(kPacketSize);
        emitted.insert(emitted.end(), held.begin(), end);
        held.erase(held.begin(), end);
    }
    void skip(std::size_t size) {
        held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(size));
        skipped += size;
    }
    [[nodiscard]] bool is_in_step(std::size_t start) const {
        bool all = true;
        for (std::size_t at = start; at < held.size(); at += kPacketSize) {
            all = all && held[at] == kSync;
        }
        return all;
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
    std::vector<std::uint8_t> emitted;
    relay::Packetizer packetizer([&](Bytes message) {
        require(relay::is_transport_stream(message), "whole packets");
        emitted.insert(emitted.end(), message.begin(), message.end());
    });
    Model model;
    for (Bytes rest = stream; !rest.empty();) {
        const std::size_t asked =
            control.empty() ? rest.size() : control.take<std::uint16_t>() % 3000;
        const Bytes piece = rest.first(std::min(asked + 1, rest.size()));
        rest = rest.subspan(piece.size());
        packetizer.feed(piece);
        std::for_each(piece.begin(), piece.end(), [&](std::uint8_t byte) { model.feed(byte); });
        require(emitted == model.emitted, "every packet as soon as it is complete");
    }
    packetizer.finish();
    model.skip(model.held.size());
    require(emitted == model.emitted && packetizer.skipped() == model.skipped, "the packets");
    require(emitted.size() + packetizer.skipped() == stream.size(), "every byte is accounted for");
    require(!relay::is_transport_stream(stream) || packetizer.skipped() == 0,
            "packets in step are never skipped");
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
    const relay::Site site{{"a", "b"}, ""};
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
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    Input control(input.take_bytes(32));
    const Bytes rest = input.rest();
    check_requests(control, {rest.begin(), rest.end()});
    check_http({rest.begin(), rest.end()});
    check_packets(control, stream_of(input));
    return 0;
}
