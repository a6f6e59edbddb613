#include "stream/http_answer.hpp"

#include <time.h>

#include <algorithm>
#include <charconv>

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

std::string error(unsigned status, const Site& site, const std::string& fields = "") {
    return page(status, site, kText, std::string(name_of(status)) + "\n", fields);
}

std::string options(const Site& site) {
    const char* const cors = site.cors_origin.empty()
                                 ? ""
                                 : "Access-Control-Allow-Methods: GET, HEAD\r\n"
                                   "Access-Control-Allow-Headers: Range\r\n";
    return head(HTTP_STATUS_NO_CONTENT, site, std::string(kAllowed) + cors);
}

std::string playlist(const HttpRequest& request, const Site& site) {
    // Players complete an address without a host with that of the playlist.
    const std::string host = request.host.empty() ? "" : "http://" + request.host;
    std::string body = "#EXTM3U\n";
    for (const Site::Entry& entry : site.channels) {
        if (entry.is_listed) {
            body.append("#EXTINF:-1,").append(entry.name).append("\n");
            body.append(host).append("/").append(entry.name).append("\n");
        }
    }
    return page(HTTP_STATUS_OK, site, "audio/x-mpegurl", body);
}

std::optional<std::size_t> channel_of(const std::string& path, const Site& site) {
    const std::string name = path.substr(path.starts_with('/') ? 1 : 0);
    if (name.empty() && site.channels.size() == 1) {
        return 0;
    }
    const auto found = std::find_if(site.channels.begin(), site.channels.end(),
                                    [&](const auto& entry) { return entry.name == name; });
    return found != site.channels.end() ? std::optional<std::size_t>(found - site.channels.begin())
                                        : std::nullopt;
}

std::optional<std::uint64_t> number_of(const std::string& text) {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [at, code] = std::from_chars(text.data(), end, number);
    return code == std::errc() && at == end ? std::optional(number) : std::nullopt;
}

HttpAnswer stream(const HttpRequest& request, const Site& site, std::size_t channel) {
    const auto last = request.parameter("last");
    const auto seconds = last ? number_of(*last) : std::nullopt;
    if (last && !seconds) {
        return {error(HTTP_STATUS_BAD_REQUEST, site), {}, {}};
    }
    return {head(HTTP_STATUS_OK, site, "Content-Type: video/mp2t\r\nAccept-Ranges: none\r\n"),
            channel, seconds};
}

HttpAnswer answer_to_get(const HttpRequest& request, const Site& site) {
    if (request.path == "/playlist.m3u") {
        return {playlist(request, site), {}, {}};
    }
    if (const auto channel = channel_of(request.path, site)) {
        return stream(request, site, *channel);
    }
    return {error(HTTP_STATUS_NOT_FOUND, site), {}, {}};
}

}  // namespace

HttpAnswer answer_to(const HttpRequest& request, const Site& site) {
    if (request.state == HttpRequest::State::too_long) {
        return {error(HTTP_STATUS_REQUEST_HEADER_FIELDS_TOO_LARGE, site), {}, {}};
    }
    if (request.state != HttpRequest::State::complete) {
        return {error(HTTP_STATUS_BAD_REQUEST, site), {}, {}};
    }
    switch (request.method) {
        case HTTP_GET:
            return answer_to_get(request, site);
        case HTTP_HEAD: {
            const std::string text = answer_to_get(request, site).text;
            return {text.substr(0, text.find("\r\n\r\n") + 4), {}, {}};
        }
        case HTTP_OPTIONS:
            return {options(site), {}, {}};
        default:
            return {error(HTTP_STATUS_METHOD_NOT_ALLOWED, site, kAllowed), {}, {}};
    }
}

std::string refusal(unsigned status, const Site& site) {
    return error(status, site,
                 status == HTTP_STATUS_SERVICE_UNAVAILABLE ? "Retry-After: 5\r\n" : "");
}

}  // namespace relay
