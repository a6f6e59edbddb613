// Prints one line for each frame: time, addresses, protocol, length, and details of the protocol.
#pragma once

#include <string>
#include <string_view>

#include "options.hpp"
#include "show/printer.hpp"

namespace capture {

class Line : public Printer {
public:
    explicit Line(const TimeForm& form) : form_(form) {}

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;

    // Returns the line with its line end. The text is valid until the next call.
    std::string_view print(const Frame& frame, const Packet& packet);

private:
    void add_time(const timespec& time);

    const TimeForm form_;
    time_t second_ = -1;  // the second that second_text_ shows
    std::string second_text_;
    std::string text_;
};

}  // namespace capture
