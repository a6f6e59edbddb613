#include "stream/http_answer.hpp"

#include <strings.h>
#include <time.h>

#include <algorithm>

#include "common/number.hpp"
#include "stream/token.hpp"

namespace relay {
namespace {

constexpr char kText[] = "text/plain; charset=utf-8";
constexpr char kAllowed[] = "Allow: GET, HEAD, OPTIONS\r\n";

const char* name_of(unsigned status) {
    switch (status) {
#define RELAY_NAME(number, name, text) \
    case number:                       \
        return #text;
        HTTP_STATUS_MAP(RELAY_NAME)
#undef RELAY_NAME
    }
    return "Unknown";
}

std::string date() {
    char text[64];
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    return {text, strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts)};
}

std::string head(unsigned status, const Site& site, const std::string& fields) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " " + name_of(status) +
                       "\r\nDate: " + date() +
                       "\r\nConnection: close\r\nCache-Control: no-store\r\n" + fields;
    if (!site.cors_origin.empty()) {
        text += "Access-Control-Allow-Origin: " + site.cors_origin + "\r\n";
    }
    return text + "\r\n";
}

std::string page(unsigned status, const Site& site, const char* type, const std::string& body,
                 const std::string& fields = "") {
    return head(status, site,
                fields + "Content-Type: " + type +
                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n") +
           body;
}

// What a refused client may do.
const char* advice(unsigned status) {
    switch (status) {
        case HTTP_STATUS_UNAUTHORIZED:
            return "WWW-Authenticate: Bearer\r\n";
        case HTTP_STATUS_METHOD_NOT_ALLOWED:
            return kAllowed;
        case HTTP_STATUS_TOO_MANY_REQUESTS:
        case HTTP_STATUS_SERVICE_UNAVAILABLE:
            return "Retry-After: 5\r\n";
        default:
            return "";
    }
}

std::string without_body(const std::string& text) {
    return text.substr(0, text.find("\r\n\r\n") + 4);
}

bool knows_token(const HttpRequest& request, const Site& site) {
    return is_token(request.parameter("token").value_or(""), site.token) ||
           is_bearer(request.authorization, site.token);
}

std::string options(const Site& site) {
    const char* const cors = site.cors_origin.empty()
                                 ? ""
                                 : "Access-Control-Allow-Methods: GET, HEAD\r\n"
                                   "Access-Control-Allow-Headers: Authorization, Range\r\n";
    return head(HTTP_STATUS_NO_CONTENT, site, std::string(kAllowed) + cors);
}

std::string playlist(const HttpRequest& request, const Site& site) {
    // Players complete an address without a host with that of the playlist.
    const bool is_secure = strcasecmp(request.forwarded_scheme.c_str(), "https") == 0;
    const char* const scheme = is_secure ? "https://" : "http://";
    const std::string host = request.host.empty() ? "" : scheme + request.host;
    const std::string query = site.token.empty() ? "" : "?token=" + site.token;
    std::string body = "#EXTM3U\n";
    for (const Site::Entry& entry : site.channels) {
        if (entry.is_listed) {
            body.append("#EXTINF:-1,").append(entry.name).append("\n");
            body.append(host).append("/").append(entry.name).append(query).append("\n");
        }
    }
    return page(HTTP_STATUS_OK, site, "audio/x-mpegurl", body);
}

std::string name_in(const HttpRequest& request) {
    return request.path.substr(request.path.starts_with('/') ? 1 : 0);
}

// Without a name, the channel is the only one that is listed.
std::optional<std::size_t> channel_of(const std::string& name, const Site& site) {
    const auto is_meant = [&](const Site::Entry& entry) {
        return name.empty() ? entry.is_listed : entry.name == name;
    };
    const auto found = std::ranges::find_if(site.channels, is_meant);
    const bool is_clear = std::ranges::count_if(site.channels, is_meant) == 1;
    return is_clear ? std::optional<std::size_t>(found - site.channels.begin()) : std::nullopt;
}

HttpAnswer answer_to_get(const HttpRequest& request, const Site& site) {
    if (!site.token.empty() && !knows_token(request, site)) {
        return {refusal(HTTP_STATUS_UNAUTHORIZED, site), {}, {}, ""};
    }
    if (request.path == kPlaylistPath) {
        return {playlist(request, site), {}, {}, ""};
    }
    const auto last = request.parameter("last");
    const auto seconds = last ? tools::parse_number(*last) : std::nullopt;
    if (last && !seconds) {
        return {refusal(HTTP_STATUS_BAD_REQUEST, site), {}, {}, ""};
    }
    std::string name = name_in(request);
    const bool is_demand = name.starts_with("udp/") || name.starts_with("rtp/");
    const auto channel = channel_of(name, site);
    return {channel ? head_of_stream(site) : refusal(HTTP_STATUS_NOT_FOUND, site), channel, seconds,
            is_demand ? std::move(name) : ""};
}

}  // namespace

HttpAnswer answer_to(const HttpRequest& request, const Site& site) {
    if (request.state == HttpRequest::State::too_long) {
        return {refusal(HTTP_STATUS_REQUEST_HEADER_FIELDS_TOO_LARGE, site), {}, {}, ""};
    }
    if (request.state != HttpRequest::State::complete) {
        return {refusal(HTTP_STATUS_BAD_REQUEST, site), {}, {}, ""};
    }
    switch (request.method) {
        case HTTP_GET:
            return answer_to_get(request, site);
        case HTTP_HEAD: {
            HttpAnswer answer = answer_to_get(request, site);
            return {without_body(answer.text), {}, {}, std::move(answer.demanded)};
        }
        case HTTP_OPTIONS:
            return {options(site), {}, {}, ""};
        default:
            return {refusal(HTTP_STATUS_METHOD_NOT_ALLOWED, site), {}, {}, ""};
    }
}

std::string head_of_stream(const Site& site) {
    return head(HTTP_STATUS_OK, site, "Content-Type: video/mp2t\r\nAccept-Ranges: none\r\n");
}

std::string refusal(unsigned status, const Site& site) {
    return page(status, site, kText, std::string(name_of(status)) + "\n", advice(status));
}

std::string refusal_to(const HttpRequest& request, unsigned status, const Site& site) {
    const std::string text = refusal(status, site);
    return request.method == HTTP_HEAD ? without_body(text) : text;
}

}  // namespace relay
