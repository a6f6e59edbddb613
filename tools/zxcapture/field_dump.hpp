// The engine's field dump as text: it logs into memory, from where the lines are taken.
#pragma once

#include <string>

#include "decoder.hpp"
#include "frame.hpp"
#include "zxcommon.hpp"

namespace capture {

class FieldDump {
public:
    // Throws a Failure when the log cannot be led into memory.
    FieldDump();

    // The fields of the frame that passed last, indented, without the front of log lines.
    std::string print(Decoder& decoder, const Frame& frame);

private:
    std::string take_log();

    zxcommon::Descriptor memory_;
};

}  // namespace capture
