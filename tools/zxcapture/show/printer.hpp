// What is printed of the frames that pass.
#pragma once

#include <cstdint>

#include "packet/packet.hpp"
#include "show/output.hpp"
#include "source/frame.hpp"

namespace capture {

class Printer {
public:
    Printer() = default;
    Printer(const Printer&) = delete;
    Printer& operator=(const Printer&) = delete;
    virtual ~Printer() = default;

    // `number` counts the frames of the source from 1, also those that do not pass.
    virtual void add(const Frame& frame, const Packet& packet, std::uint64_t number,
                     Output& output) = 0;

    // Called between frames, a few times a second while a source waits for frames.
    virtual void refresh(Output&) {}

    // Called once, after the last frame.
    virtual void finish(Output&) {}
};

}  // namespace capture
