// Reads the requests of a client: the line "last N" asks for the last N seconds of the stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace relay {

class RequestReader {
public:
    // Returns N of the last request that these bytes complete. All other lines are ignored.
    std::optional<std::uint64_t> feed(std::string_view bytes);

private:
    std::string line_;  // the start of the current line, as long as the longest request
};

}  // namespace relay
