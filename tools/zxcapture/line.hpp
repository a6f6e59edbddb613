// One line a frame: time, addresses, protocol, length, and what else the protocol has to say.
#pragma once

#include <string>
#include <string_view>

#include "frame.hpp"
#include "layers.hpp"
#include "options.hpp"
#include "zxframe.h"

namespace capture {

// A short name of the innermost protocol that the frame is known to have.
[[nodiscard]] std::string protocol_name(const ether_ctt& record, const Layers& layers);

class Line {
public:
    explicit Line(const TimeForm& form) : form_(form) {}

    // With its line end; lives until the next call.
    std::string_view print(const Frame& frame, const ether_ctt& record, const Layers& layers);

private:
    void add_time(const timespec& time);

    const TimeForm form_;
    time_t second_ = -1;  // the one that is in second_text_
    std::string second_text_;
    std::string text_;
};

}  // namespace capture
