// The field dump as text. The frame engine can only log it, so the log is sent to a file in memory
// and read back.
#pragma once

#include <string>

#include "show/engine.hpp"
#include "show/line.hpp"
#include "zxcommon.hpp"

namespace capture {

// A line, and the fields after it.
class FieldDump : public Printer {
public:
    // Throws a Failure if the log cannot be sent to memory.
    FieldDump(const TimeForm& time, const LineForm& form);

    void add(const Frame& frame, const Packet& packet, std::uint64_t number,
             Output& output) override;

private:
    // The fields, indented, without time, level and tag.
    std::string fields(const Frame& frame, const Packet& packet);
    std::string take_log();

    Line line_;
    Engine engine_;
    zxcommon::Descriptor memory_;
};

}  // namespace capture
