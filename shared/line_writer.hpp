// Writes lines to a descriptor and counts those that could not be written. The log file and the
// echo of libzxcommon share this. It is safe in signal handlers.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace zx {

class LineWriter {
public:
    // `time` and `level` give the start of the line that reports lost lines.
    constexpr LineWriter(const char* (*time)(), const char* const* level)
        : time_(time), level_(level) {}

    // Hands one line to the kernel, or counts it as lost. The count is written before the next line
    // that succeeds. `write_part(text, size)` works like write(). Changes errno.
    template <typename WritePart>
    void write(const char* line, std::size_t size, WritePart write_part) {
        const bool writable = lost_.load(std::memory_order_relaxed) == 0 || report(write_part);
        if (!writable || !write_whole(line, size, write_part)) {
            add_lost(1);
        }
    }

    // Call this when the lines go to another file from now on.
    void begin_file() { torn_.store(false, std::memory_order_relaxed); }

private:
    static constexpr std::uint64_t kCountMask = 0xFFFFFFFFU;

    static std::uint64_t process_part() { return static_cast<std::uint64_t>(getpid()) << 32U; }

    void add_lost(std::uint64_t count) {
        const std::uint64_t self = process_part();
        std::uint64_t seen = lost_.load(std::memory_order_relaxed);
        std::uint64_t wanted;
        do {
            const std::uint64_t before = (seen & ~kCountMask) == self ? seen & kCountMask : 0;
            wanted = self | ((before + count) & kCountMask);
        } while (!lost_.compare_exchange_weak(seen, wanted, std::memory_order_relaxed));
    }

    // Needs one write, unless the kernel takes only a part of the line.
    template <typename WritePart>
    bool write_whole(const char* text, std::size_t size, WritePart& write_part) {
        std::size_t done = 0;
        long written;
        do {
            written = write_part(text + done, size - done);
            done += written > 0 ? static_cast<std::size_t>(written) : 0;
        } while (written > 0 && done < size);
        if (done < size && done > 0) {
            torn_.store(true, std::memory_order_relaxed);
        }
        return done == size;
    }

    // True when no line was lost before, or when the count is written now.
    template <typename WritePart>
    bool report(WritePart& write_part) {
        const std::uint64_t taken = lost_.exchange(0, std::memory_order_relaxed);
        if (taken == 0 || (taken & ~kCountMask) != process_part()) {
            return true;
        }
        const std::uint64_t count = taken & kCountMask;
        char line[128];
        const int size =
            std::snprintf(line, sizeof line, "%s%s[%s][ZXLOG]%llu lines could not be written\r\n",
                          torn_.load(std::memory_order_relaxed) ? "\r\n" : "", time_(), *level_,
                          static_cast<unsigned long long>(count));
        if (!write_whole(line, static_cast<std::size_t>(size), write_part)) {
            add_lost(count);
            return false;
        }
        torn_.store(false, std::memory_order_relaxed);
        return true;
    }

    const char* (*const time_)();
    const char* const* const level_;
    // The process that lost lines, and how many. A forked child does not report what its parent
    // lost.
    std::atomic<std::uint64_t> lost_{0};
    std::atomic<bool> torn_{false};  // the last thing in the file is a part of a line
};

}  // namespace zx
