#include "stream/http_request.hpp"

#include <curl/curl.h>
#include <strings.h>

#include <algorithm>
#include <exception>
#include <memory>

#include "stream/token.hpp"
#include "zxstr.h"

namespace relay {
namespace {

constexpr std::size_t kLongestRequest = 8192;
constexpr int kNothingFollows = 2;  // tells the parser to stop after the head

// A path without its percent signs. Empty if there is no memory for it.
std::string decoded(const std::string& path) {
    int size = 0;
    const std::unique_ptr<char, decltype(&curl_free)> text(
        curl_easy_unescape(nullptr, path.data(), static_cast<int>(path.size()), &size), curl_free);
    return text ? std::string(text.get(), static_cast<std::size_t>(size)) : "";
}

// The first text of a list such as "https, http".
std::string first_of_list(const std::string& list) {
    constexpr char kBetween[] = " \t,";
    const std::size_t begin = std::min(list.find_first_not_of(kBetween), list.size());
    return list.substr(begin, list.find_first_of(kBetween, begin) - begin);
}

// The host goes into the addresses of a playlist, so it must not contain anything else.
bool is_host_character(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view(".-_:[]").find(c) != std::string_view::npos;
}

}  // namespace

// What the parser calls. No exception may pass through it: a result other than 0 ends the parsing.
struct HttpCallbacks {
    template <class Work>
    static int run(http_parser* parser, const Work& work) {
        try {
            work(*static_cast<HttpReader*>(parser->data));
            return 0;
        } catch (const std::exception&) {
            return 1;
        }
    }
    static int on_target(http_parser* parser, const char* at, std::size_t size) {
        return run(parser, [&](HttpReader& reader) { reader.target_.append(at, size); });
    }
    static int on_field(http_parser* parser, const char* at, std::size_t size) {
        return run(parser, [&](HttpReader& reader) {
            if (reader.is_in_value_) {
                reader.field_.clear();
                reader.is_in_value_ = false;
            }
            reader.field_.append(at, size);
        });
    }
    static int on_value(http_parser* parser, const char* at, std::size_t size) {
        return run(parser, [&](HttpReader& reader) {
            if (strcasecmp(reader.field_.c_str(), "host") == 0) {
                reader.hosts_ += reader.is_in_value_ ? 0 : 1;
                reader.request_.host.append(at, size);
            } else if (strcasecmp(reader.field_.c_str(), "authorization") == 0) {
                reader.request_.authorization.append(at, size);
            } else if (strcasecmp(reader.field_.c_str(), "x-forwarded-proto") == 0) {
                reader.request_.forwarded_scheme.append(reader.is_in_value_ ? "" : ",");
                reader.request_.forwarded_scheme.append(at, size);
            }
            reader.is_in_value_ = true;
        });
    }
    static int on_head(http_parser* parser) {
        const int code = run(parser, [](HttpReader& reader) { reader.complete(); });
        return code == 0 ? kNothingFollows : -1;
    }
};

std::optional<std::string> HttpRequest::parameter(const char* key) const {
    char value[kLongestToken + 2];
    if (zxstr_api_findTag(value, sizeof value, key, query.c_str()) != 1) {
        return std::nullopt;
    }
    return value;
}

HttpReader::HttpReader() {
    http_parser_init(&parser_, HTTP_REQUEST);
    parser_.data = this;
}

void HttpReader::feed(std::string_view bytes) {
    static constexpr http_parser_settings kSettings{.on_message_begin = nullptr,
                                                    .on_url = HttpCallbacks::on_target,
                                                    .on_status = nullptr,
                                                    .on_header_field = HttpCallbacks::on_field,
                                                    .on_header_value = HttpCallbacks::on_value,
                                                    .on_headers_complete = HttpCallbacks::on_head,
                                                    .on_body = nullptr,
                                                    .on_message_complete = nullptr,
                                                    .on_chunk_header = nullptr,
                                                    .on_chunk_complete = nullptr};
    size_ += bytes.size();
    http_parser_execute(&parser_, &kSettings, bytes.data(), bytes.size());
    if (request_.state != HttpRequest::State::partial) {
        return;
    }
    if (HTTP_PARSER_ERRNO(&parser_) != HPE_OK) {
        request_.state = HttpRequest::State::wrong;
    } else if (size_ > kLongestRequest) {
        request_.state = HttpRequest::State::too_long;
    }
}

void HttpReader::complete() {
    request_.method = parser_.method;
    std::string& field =
        request_.authorization;  // RFC 9110: blanks after a value do not belong to it
    field.erase(field.find_last_not_of(" \t") + 1);
    request_.forwarded_scheme = first_of_list(request_.forwarded_scheme);
    const bool is_good = parser_.http_major == 1 && has_good_host() && split_target();
    request_.state = is_good ? HttpRequest::State::complete : HttpRequest::State::wrong;
}

// HTTP/1.1 requires the host, exactly once.
bool HttpReader::has_good_host() const {
    const std::string& host = request_.host;
    return hosts_ <= 1 && (parser_.http_minor == 0 || !host.empty()) &&
           std::all_of(host.begin(), host.end(), is_host_character);
}

bool HttpReader::split_target() {
    http_parser_url url;
    http_parser_url_init(&url);
    const int is_connect = parser_.method == HTTP_CONNECT ? 1 : 0;
    if (http_parser_parse_url(target_.data(), target_.size(), is_connect, &url) != 0) {
        return false;
    }
    const auto part = [&](http_parser_url_fields which) {
        const auto& field = url.field_data[which];
        const bool is_there = (url.field_set & (1U << which)) != 0;
        return is_there ? target_.substr(field.off, field.len) : std::string();
    };
    const std::string path = part(UF_PATH);
    request_.path = decoded(path);
    request_.query = part(UF_QUERY);
    return path.empty() == request_.path.empty();
}

}  // namespace relay
