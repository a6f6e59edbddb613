// Writes the frames that pass to a capture file, or to a ring of them.
#pragma once

#include "write/writer.hpp"

namespace capture {

// The names of several files are those that tcpdump gives: `path` is followed by a number, or
// contains a time as strftime() has it.
struct Writing {
    std::string path{};  // "-": standard output; empty: nothing is written
    bool pcapng = false;
    std::uint64_t file_size = 0;   // bytes; a larger file is followed by the next; 0: no limit
    std::uint32_t seconds = 0;     // a file for this time; 0: no limit
    std::uint32_t file_count = 0;  // with file_size: the first follows the last; with seconds: the
                                   // last is the end; 0: no limit
};

class CaptureFiles {
public:
    // `source` must live longer. All functions throw as those of Sink do.
    CaptureFiles(const Writing& writing, std::uint32_t snapshot_length, Source& source);

    // False: the last file is complete.
    [[nodiscard]] bool has_room_for(const Frame& frame) const;

    void add(const Frame& frame);
    void flush();

    // Ends the last file.
    void finish();

private:
    [[nodiscard]] bool is_in_next_period(const Frame& frame) const;
    [[nodiscard]] time_t period_of(const Frame& frame) const;
    [[nodiscard]] bool is_too_large_with(const Frame& frame) const;
    void start_period(time_t start);
    void start_next_number();
    void open(const std::string& base, std::uint32_t number);
    void close();

    const Writing writing_;
    const std::uint32_t snapshot_length_;
    Source& source_;
    std::optional<Sink> sink_;
    std::unique_ptr<Writer> writer_;
    std::string base_;          // the name without its number
    std::uint32_t number_ = 0;  // in the name
    std::uint32_t opened_ = 0;  // files
    bool is_empty_ = true;      // the file has no frame yet
    time_t period_ = 0;         // when it started
};

}  // namespace capture
