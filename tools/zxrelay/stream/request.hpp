// What a client may say: a line "last N" asks for the last N seconds of the stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace relay {

class RequestReader {
public:
    // The seconds of the last such line that these bytes end. All other lines are ignored.
    std::optional<std::uint64_t> feed(std::string_view bytes);

private:
    std::string line_;  // so far, but for what makes it too long
};

}  // namespace relay
