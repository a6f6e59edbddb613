// A source of frames: a capture file or an interface.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "source/frame.hpp"

namespace capture {

enum class Got {
    frame,
    filtered,  // a frame that the filter expression does not let pass; it is only counted
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
    // Of the kernel: half a second at 1 Gbit/s, in which a busy machine may let nobody read it.
    std::uint32_t buffer_kib = 64U << 10U;
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

    // Reads the next frame, whose bytes are valid until the next call. Waits for it. Throws a
    // Failure if the source fails.
    virtual Got next(Frame& frame) = 0;

    // From now on, next() calls `idle` when it begins to wait, and a few times a second while it
    // waits. What `idle` throws comes out of next(). A regular file never waits.
    void on_idle(std::function<void()> idle) { idle_ = std::move(idle); }

    // The link type of its frames, see Frame::link.
    [[nodiscard]] virtual int link() const = 0;

    // How much of the source has been read, from 0 to 1, if that is known.
    [[nodiscard]] virtual std::optional<double> position() const { return std::nullopt; }

    // What was lost so far, of a live source.
    [[nodiscard]] virtual std::optional<Drops> drops() { return std::nullopt; }

    // The file that is read; it must not be written.
    [[nodiscard]] virtual std::optional<FileId> file_id() const { return std::nullopt; }

protected:
    static constexpr int kWaitMs = 250;

    void idle() const {
        if (idle_) {
            idle_();
        }
    }

private:
    std::function<void()> idle_;
};

// These functions throw a Failure if they cannot open the source, or if libpcap cannot compile the
// filter expression.

// Opens a capture file; "-" is standard input. Frames that the expression does not let pass are
// reported as Got::filtered.
std::unique_ptr<Source> open_file(const std::string& path, const Selection& selection);

// Whether such a file is a regular one: all of its frames are there. A pipe may have to be waited
// for.
bool is_regular_file(const std::string& path);

// Captures from an interface. The expression filters in the kernel, so frames that it does not let
// pass never arrive. After a signal, next() still returns the frames that arrived before it.
std::unique_ptr<Source> open_interface(const Live& live, const Selection& selection);

// The interfaces from which frames can be captured, a line each: name, state and addresses.
std::string list_interfaces();

}  // namespace capture
