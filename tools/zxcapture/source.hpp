// Where frames come from.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "frame.hpp"

namespace capture {

enum class Got {
    frame,
    nothing,  // for now: next() may wait from here on
    end,
};

class Source {
public:
    virtual ~Source() = default;

    // The next frame, whose bytes live until the next call. Throws a Failure when the source breaks
    // off.
    virtual Got next(Frame& frame) = 0;

    // How much of the source is read, from 0 to 1, where that can be known.
    [[nodiscard]] virtual std::optional<double> position() const { return std::nullopt; }

    // Frames that the kernel had no room for, where it counts.
    [[nodiscard]] virtual std::optional<std::uint64_t> drops() { return std::nullopt; }
};

// These throw a Failure that says why there are no frames to be had.

// A capture file, "-" for standard input. `output` is the file that is about to be written, or
// empty: that cannot be the same one.
std::unique_ptr<Source> open_file(const std::string& path, const std::string& output);

std::unique_ptr<Source> open_interface(const std::string& name, bool promiscuous);

}  // namespace capture
