// Prints one line for each frame: time, addresses, protocol, length, and details of the protocol.
#pragma once

#include <string>
#include <string_view>

#include "frame.hpp"
#include "layers.hpp"
#include "options.hpp"
#include "zxframe.h"

namespace capture {

// A short name of the innermost protocol whose header is present.
[[nodiscard]] std::string protocol_name(const ether_ctt& record, const Layers& layers);

class Line {
public:
    explicit Line(const TimeForm& form) : form_(form) {}

    // Returns the line with its line end. The text is valid until the next call.
    std::string_view print(const Frame& frame, const ether_ctt& record, const Layers& layers);

private:
    void add_time(const timespec& time);

    const TimeForm form_;
    time_t second_ = -1;  // the second that second_text_ shows
    std::string second_text_;
    std::string text_;
};

}  // namespace capture
