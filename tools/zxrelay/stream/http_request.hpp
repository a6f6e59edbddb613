// Reads an HTTP request.
#pragma once

#include <http_parser.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace relay {

// The head of a request; a body is ignored.
struct HttpRequest {
    enum class State { partial, complete, wrong, too_long };  // all but the first are final
    State state = State::partial;
    unsigned method = 0;  // HTTP_GET and others of http_parser.h
    std::string path;     // decoded
    std::string query;
    std::string host;              // empty: the client has sent none
    std::string authorization;     // the same
    std::string forwarded_scheme;  // that by which a proxy was asked; empty: the same

    // The value of `key` in the query; only the first characters of one that is very long.
    [[nodiscard]] std::optional<std::string> parameter(const char* key) const;
};

class HttpReader {
public:
    HttpReader();
    HttpReader(const HttpReader&) = delete;
    HttpReader& operator=(const HttpReader&) = delete;

    // Call it until the request is no longer partial.
    void feed(std::string_view bytes);
    [[nodiscard]] const HttpRequest& request() const { return request_; }

private:
    friend struct HttpCallbacks;
    void complete();
    bool split_target();
    [[nodiscard]] bool has_good_host() const;

    http_parser parser_{};
    HttpRequest request_;
    std::string target_;
    std::string field_;  // the name of the current header field
    unsigned hosts_ = 0;
    bool is_in_value_ = false;
    std::size_t size_ = 0;
};

}  // namespace relay
