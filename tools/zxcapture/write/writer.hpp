// A format of capture files.
#pragma once

#include <memory>
#include <optional>

#include "source/source.hpp"
#include "write/sink.hpp"

namespace capture {

// Writes one file into a Sink, which must live longer, and starts it at once.
class Writer {
public:
    Writer() = default;
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    virtual ~Writer() = default;

    virtual void add(const Frame& frame) = 0;

    // By how much the file grows with this frame, and with what follows the last one.
    [[nodiscard]] virtual std::size_t size_of(const Frame& frame) const = 0;

    // Ends the file. `drops` are those of the source so far, if it counts them.
    virtual void finish(const std::optional<Drops>&) {}
};

// `link` is the link type of all frames, and `snapshot_length` the most bytes of one. Both formats
// have nanoseconds.
std::unique_ptr<Writer> write_pcap(Sink& sink, int link, std::uint32_t snapshot_length);
std::unique_ptr<Writer> write_pcapng(Sink& sink, int link, std::uint32_t snapshot_length);

}  // namespace capture
