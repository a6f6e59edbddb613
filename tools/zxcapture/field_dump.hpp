// The field dump as text. The frame engine can only log it, so the log is sent to a file in memory
// and read back.
#pragma once

#include <string>

#include "decoder.hpp"
#include "frame.hpp"
#include "zxcommon.hpp"

namespace capture {

class FieldDump {
public:
    // Throws a Failure if the log cannot be sent to memory.
    FieldDump();

    // The fields of the frame that passed last, indented, without time, level and tag.
    std::string print(Decoder& decoder, const Frame& frame);

private:
    std::string take_log();

    zxcommon::Descriptor memory_;
};

}  // namespace capture
