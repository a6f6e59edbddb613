// What the relay answers to HTTP requests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "stream/http_request.hpp"

namespace relay {

inline constexpr char kPlaylistPath[] = "/playlist.m3u";

// What can be asked for.
struct Site {
    struct Entry {
        std::string name;
        bool is_listed;  // in the playlist
    };
    std::vector<Entry> channels;
    std::string cors_origin;  // whose pages may read the stream; empty: nobody's
    std::string token;        // of letters, digits, '-', '.', '_' and '~'; empty: none is needed
};

struct HttpAnswer {
    std::string text;
    // The stream of this channel follows the text. Without one, the connection ends.
    std::optional<std::size_t> channel;
    std::optional<std::uint64_t> last_seconds;  // the stream begins in the past
    // The name of a channel on demand. Its channel, if there is one, may be about to be closed.
    std::string demanded;
};

// `request` is no longer partial.
HttpAnswer answer_to(const HttpRequest& request, const Site& site);

// What comes before a stream.
std::string head_of_stream(const Site& site);

// The answer to a client that gets nothing else, with a request or without one.
std::string refusal(unsigned status, const Site& site);
std::string refusal_to(const HttpRequest& request, unsigned status, const Site& site);

}  // namespace relay
