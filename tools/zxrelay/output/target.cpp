#include "output/target.hpp"

#include "common/failure.hpp"
#include "common/number.hpp"

namespace relay {
namespace {

using tools::Failure;

constexpr int kMostHops = 255;

int hops(const std::string& value, const std::string& text) {
    const auto number = tools::parse_number(value);
    if (!number || *number < 1 || *number > kMostHops) {
        throw Failure("'" + text + "': ttl must be from 1 to 255");
    }
    return static_cast<int>(*number);
}

void set(Target& target, const std::string& pair) {
    const std::size_t equals = pair.find('=');
    const std::string key = pair.substr(0, equals);
    const std::string value = equals == std::string::npos ? "" : pair.substr(equals + 1);
    if (value.empty()) {
        throw Failure("'" + target.text + "': '" + pair + "' has no value");
    }
    if (key == "ttl") {
        target.ttl = hops(value, target.text);
    } else if (key == "interface") {
        target.interface = value;
    } else if (key == "localaddr") {
        target.localaddr = value;
    } else {
        throw Failure("'" + target.text + "': use ttl, interface and localaddr, not '" + key + "'");
    }
}

}  // namespace

Target parse_target(const std::string& text) {
    const std::size_t mark = text.find('?');
    if (!text.starts_with("udp://") && !text.starts_with("rtp://")) {
        throw Failure("'" + text + "' takes no datagrams: use udp:// or rtp://");
    }
    const Url url = parse_url(text.substr(0, mark));
    if (!url.sender.empty()) {
        throw Failure("'" + text + "' must be without '" + url.sender + "@'");
    }
    Target target;
    target.text = text;
    target.is_rtp = url.scheme == Scheme::rtp;
    target.endpoint = url.endpoint;
    std::size_t begin = mark;
    while (begin != std::string::npos) {
        const std::size_t end = text.find('&', ++begin);
        set(target, text.substr(begin, end == std::string::npos ? end : end - begin));
        begin = end;
    }
    return target;
}

}  // namespace relay
