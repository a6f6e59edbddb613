// The names of this host's interfaces.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace capture {

class InterfaceNames {
public:
    // Returns the name of the interface with this index; nothing if there is none, or if not all of
    // its characters can be printed. A name is asked for once, because every frame has an index.
    [[nodiscard]] std::string_view find(std::uint32_t index);

private:
    std::map<std::uint32_t, std::string> names_;
};

}  // namespace capture
