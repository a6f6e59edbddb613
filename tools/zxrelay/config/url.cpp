#include "config/url.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "common/failure.hpp"
#include "zxstr.h"

namespace relay {
namespace {

using tools::Failure;

constexpr int kNoPort = -1;
constexpr int kLargestPort = 65535;

struct Parts {
    std::string scheme;
    std::string user;
    std::string host;
    std::string path;
    int port = kNoPort;
    bool is_bracketed = false;
};

Parts split(const std::string& text) {
    const std::size_t size = text.size() + 1;  // no part is longer, so none is cut
    const int limit = static_cast<int>(size);
    Parts parts;
    const auto texts = {&parts.scheme, &parts.user, &parts.host, &parts.path};
    for (std::string* const part : texts) {
        part->resize(size);
    }
    std::uint8_t is_bracketed = 0;
    zxstr_api_urlSplit(parts.scheme.data(), limit, parts.user.data(), limit, parts.host.data(),
                       limit, &parts.port, parts.path.data(), limit, &is_bracketed, text.c_str());
    for (std::string* const part : texts) {
        part->resize(std::strlen(part->c_str()));
    }
    parts.is_bracketed = is_bracketed != 0;
    return parts;
}

// Returns whether the parts, put together again, give the text. They do not for a port such as
// ":1x", which is read as 1.
bool is_exact(const Parts& parts, const std::string& text) {
    const std::string host = parts.is_bracketed ? "[" + parts.host + "]" : parts.host;
    const std::string port =
        parts.port == kNoPort ? "" : std::string(":").append(std::to_string(parts.port));
    const std::string scheme = parts.scheme + "://";
    const std::string rest = host + port + parts.path;
    // Some players write udp://@239.1.1.1:1234, with an empty user.
    return text == scheme + parts.user + "@" + rest ||
           (parts.user.empty() && text == scheme + rest);
}

bool has_port(const Parts& parts) {
    return parts.port > 0 && parts.port <= kLargestPort;
}

Endpoint checked_endpoint(const Parts& parts, const std::string& text, const std::string& given) {
    if (parts.host.empty() || !has_port(parts) || !is_exact(parts, text)) {
        throw Failure("'" + given + "' is not an address with a port from 1 to 65535");
    }
    return {parts.host, std::to_string(parts.port)};
}

Scheme checked_scheme(const std::string& name, const std::string& text) {
    constexpr std::array<std::pair<const char*, Scheme>, 7> kSchemes{{
        {"udp", Scheme::udp},
        {"rtp", Scheme::rtp},
        {"tcp", Scheme::tcp_listen},
        {"tcp+connect", Scheme::tcp_connect},
        {"http", Scheme::http},
        {"https", Scheme::http},
        {"file", Scheme::file},
    }};
    const auto* const found = std::find_if(kSchemes.begin(), kSchemes.end(),
                                           [&](const auto& each) { return name == each.first; });
    if (found == kSchemes.end()) {
        throw Failure("'" + text +
                      "' is not an input: use udp://, rtp://, tcp://, tcp+connect://, http://, "
                      "https://, file:// or -");
    }
    return found->second;
}

Url parse_file(Url url, const Parts& parts) {
    if (!parts.host.empty() || parts.path.empty() || !url.text.starts_with("file:///")) {
        throw Failure("'" + url.text + "' is not a file: use file:///FOLDER/FILE");
    }
    url.path = parts.path;
    return url;
}

Url parse_http(Url url, const Parts& parts) {
    const bool is_port_good = parts.port == kNoPort || has_port(parts);
    const bool is_host_good = !parts.host.empty() && parts.host.find('@') == std::string::npos;
    if (!is_host_good || !is_port_good || !is_exact(parts, url.text)) {
        throw Failure("'" + url.text + "' has no host, or its port is not from 1 to 65535");
    }
    return url;
}

std::string without_brackets(const std::string& host) {
    const bool is_bracketed = host.size() > 2 && host.front() == '[' && host.back() == ']';
    return is_bracketed ? host.substr(1, host.size() - 2) : host;
}

Url parse_socket(Url url, const Parts& parts) {
    url.endpoint = checked_endpoint(parts, url.text, url.text);
    if (!parts.path.empty()) {
        throw Failure("'" + url.text + "' must end after the port, without '" + parts.path + "'");
    }
    const bool takes_sender = url.scheme == Scheme::udp || url.scheme == Scheme::rtp;
    if (!takes_sender && !parts.user.empty()) {
        throw Failure("'" + url.text + "' must be without '" + parts.user + "@'");
    }
    url.sender = without_brackets(parts.user);
    return url;
}

}  // namespace

std::string Endpoint::text() const {
    const bool bracketed = host.find(':') != std::string::npos;
    return (bracketed ? "[" + host + "]" : host) + ":" + port;
}

std::string Url::shown() const {
    const std::string user = scheme == Scheme::http ? split(text).user : "";
    std::string hidden = text;
    return user.empty() ? hidden : hidden.erase(hidden.find("://") + 3, user.size() + 1);
}

Url parse_url(const std::string& text) {
    if (text == "-") {
        return {Scheme::standard_input, text};
    }
    const Parts parts = split(text);
    Url url{checked_scheme(parts.scheme, text), text};
    switch (url.scheme) {
        case Scheme::file:
            return parse_file(std::move(url), parts);
        case Scheme::http:
            return parse_http(std::move(url), parts);
        default:
            return parse_socket(std::move(url), parts);
    }
}

Endpoint parse_output(const std::string& text) {
    const std::string url = "tcp://" + text;
    const Parts parts = split(url);
    if (!parts.path.empty() || !parts.user.empty()) {
        throw Failure("'" + text + "' is not an address with a port from 1 to 65535");
    }
    return checked_endpoint(parts, url, text);
}

}  // namespace relay
