// A source of frames: a capture file or an interface.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "source/frame.hpp"

namespace capture {

enum class Got {
    frame,
    filtered,  // a frame that the filter expression does not let pass; it is only counted
    nothing,   // no frame yet; the following call of next() may wait
    end,       // of the file, or by a signal
};

// What is taken from a source.
struct Selection {
    std::string expression{};                       // of libpcap; empty: every frame
    std::uint32_t snapshot_length = kLargestFrame;  // bytes that are kept of each frame
};

inline constexpr char kAnyInterface[] = "any";  // all of them

struct Live {
    std::string interface {};
    bool promiscuous = false;
    std::uint32_t buffer_kib = 16U << 10U;  // of the kernel
};

// Frames that were lost because a buffer was full.
struct Drops {
    std::uint64_t kernel = 0;
    std::uint64_t interface = 0;
};

// Names a file, whatever its path is.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId&) const = default;
};

class Source {
public:
    Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;
    virtual ~Source() = default;

    // Reads the next frame, whose bytes are valid until the next call. Throws a Failure if the
    // source fails.
    virtual Got next(Frame& frame) = 0;

    // The link type of its frames, see Frame::link.
    [[nodiscard]] virtual int link() const = 0;

    // How much of the source has been read, from 0 to 1, if that is known.
    [[nodiscard]] virtual std::optional<double> position() const { return std::nullopt; }

    // What was lost so far, of a live source.
    [[nodiscard]] virtual std::optional<Drops> drops() { return std::nullopt; }

    // The file that is read; it must not be written.
    [[nodiscard]] virtual std::optional<FileId> file_id() const { return std::nullopt; }
};

// These functions throw a Failure if they cannot open the source, or if libpcap cannot compile the
// filter expression.

// Opens a capture file; "-" is standard input. Frames that the expression does not let pass are
// reported as Got::filtered.
std::unique_ptr<Source> open_file(const std::string& path, const Selection& selection);

// Captures from an interface. The expression filters in the kernel, so frames that it does not let
// pass never arrive. After a signal, next() still returns the frames that arrived before it.
std::unique_ptr<Source> open_interface(const Live& live, const Selection& selection);

// The interfaces from which frames can be captured, a line each: name, state and addresses.
std::string list_interfaces();

}  // namespace capture
