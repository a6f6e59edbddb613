// A source of frames: a capture file or an interface.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "source/frame.hpp"

namespace capture {

enum class Got {
    frame,
    nothing,  // no frame yet; the following call of next() may wait
    end,
};

class Source {
public:
    virtual ~Source() = default;

    // Reads the next frame, whose bytes are valid until the next call. Throws a Failure if the
    // source fails.
    virtual Got next(Frame& frame) = 0;

    // How much of the source has been read, from 0 to 1, if that is known.
    [[nodiscard]] virtual std::optional<double> position() const { return std::nullopt; }

    // Frames that the kernel dropped because its buffer was full, if it counts them.
    [[nodiscard]] virtual std::optional<std::uint64_t> drops() { return std::nullopt; }
};

// These functions throw a Failure if they cannot open the source.

// Opens a capture file; "-" is standard input. `output` is the file that will be written, or empty.
// It must not be the same file.
std::unique_ptr<Source> open_file(const std::string& path, const std::string& output);

std::unique_ptr<Source> open_interface(const std::string& name, bool promiscuous);

}  // namespace capture
