// Prints one line for each frame: time, addresses, protocol, length, and details of the layers.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "options.hpp"
#include "show/interface_names.hpp"
#include "show/printer.hpp"
#include "show/text.hpp"

namespace capture {

class Line : public Printer {
public:
    explicit Line(const TimeForm& time, const LineForm& form = {}) : time_(time), form_(form) {}

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;

    // Returns the line with its line end. The text is valid until the next call of either function.
    std::string_view print(const Frame& frame, const Packet& packet);

    // Returns the bytes that the form asks for, a line for each 16, or nothing.
    std::string_view print_bytes(const Frame& frame, const Packet& packet);

private:
    void add_time(const timespec& time);
    void add_time_since_1970(const timespec& time);
    void add_time_of_day(const timespec& time);
    void add_time_since(const timespec& time);

    const TimeForm time_;
    const LineForm form_;
    std::optional<time_t> second_;  // that second_text_ shows
    std::string second_text_;
    std::optional<timespec> start_;  // the line before, or the first one
    InterfaceNames interfaces_;
    Text text_;
};

}  // namespace capture
