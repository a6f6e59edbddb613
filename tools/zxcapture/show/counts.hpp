// Counts the frames that were seen and those that passed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "source/frame.hpp"

namespace capture {

class Counts {
public:
    void add_seen() { ++seen_; }
    void add_passed(const Frame& frame, std::string_view protocol);

    [[nodiscard]] std::uint64_t seen() const { return seen_; }
    [[nodiscard]] std::uint64_t passed() const { return passed_; }

    // One line, without a line end.
    [[nodiscard]] std::string text() const;

private:
    std::uint64_t seen_ = 0;
    std::uint64_t passed_ = 0;
    std::uint64_t bytes_ = 0;
    std::map<std::string, std::uint64_t, std::less<>> protocols_;
};

}  // namespace capture
