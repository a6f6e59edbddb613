// What the fuzz targets share: buffers of an exact size, a reader of the input, and require(),
// which ends a run if a condition does not hold.
#pragma once

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <type_traits>

#include "zxlog.h"

namespace zx::fuzz {

using Bytes = std::span<const std::uint8_t>;

inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

// Log lines are still formatted, but go to /dev/null.
inline void log_to_nowhere(std::uint32_t level) {
    static const std::int32_t set = zxlog_api_setFile("/dev/null");
    require(set == 0, "there is a null device");
    zxlog_api_setLoglevel(level % 6);
}

// Memory before an inaccessible page, the guard. The address sanitizer also detects accesses to the
// bytes before the part in use.
class GuardedMemory {
public:
    explicit GuardedMemory(std::size_t capacity) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        capacity_ = (capacity + page - 1) / page * page;
        void* const memory = mmap(nullptr, capacity_ + page, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        require(memory != MAP_FAILED, "there is memory");
        begin_ = static_cast<std::uint8_t*>(memory);
        require(mprotect(begin_ + capacity_, page, PROT_NONE) == 0, "there is a guard");
    }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    // Returns `size` bytes of `fill` that end at the guard. Earlier results become invalid.
    [[nodiscard, gnu::noinline]] std::uint8_t* fill(std::size_t size, std::uint8_t fill) {
        require(size <= capacity_, "the buffer fits");
        std::uint8_t* const at = begin_ + capacity_ - size;
        ASAN_UNPOISON_MEMORY_REGION(begin_, capacity_);
        ASAN_POISON_MEMORY_REGION(begin_, capacity_ - size);
        std::memset(at, fill, size);
        return at;
    }

    // A copy of `bytes`, followed by zeros up to `least` bytes.
    [[nodiscard]] std::uint8_t* copy(Bytes bytes, std::size_t least = 0) {
        std::uint8_t* const at = fill(std::max(bytes.size(), least), 0);
        std::copy(bytes.begin(), bytes.end(), at);
        return at;
    }

    // A text with its NUL, followed by `room` zeros.
    [[nodiscard]] char* text(const std::string& text, std::size_t room = 0) {
        return reinterpret_cast<char*>(
            copy({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()},
                 text.size() + 1 + room));
    }

    // Returns `size` bytes for a text. They hold the longest text that fits.
    [[nodiscard]] char* old_text(std::size_t size) {
        char* const text = reinterpret_cast<char*>(fill(size, 'x'));
        if (size > 0) {
            text[size - 1] = '\0';
        }
        return text;
    }

    template <typename Record>
    [[nodiscard]] Record& record(std::uint8_t byte) {
        static_assert(alignof(Record) <= 16 && sizeof(Record) % alignof(Record) == 0);
        void* const at = fill(sizeof(Record), byte);
        return *static_cast<Record*>(at);
    }

private:
    std::uint8_t* begin_ = nullptr;
    std::size_t capacity_ = 0;
};

// Reads values from the front of the input, numbers in little-endian order. Returns zeros after its
// end.
class Input {
public:
    explicit Input(Bytes bytes) : bytes_(bytes) {}

    template <typename Number>
    [[nodiscard]] Number take() {
        Number number{};
        const Bytes taken = take_bytes(sizeof number);
        auto* const bytes = reinterpret_cast<std::uint8_t*>(&number);
        std::copy(taken.begin(), taken.end(), bytes);
        if constexpr (std::is_integral_v<Number> && std::endian::native == std::endian::big) {
            std::reverse(bytes, bytes + sizeof number);
        }
        return number;
    }

    [[nodiscard]] Bytes take_bytes(std::size_t size) {
        const Bytes taken = bytes_.first(std::min(size, bytes_.size()));
        bytes_ = bytes_.subspan(taken.size());
        return taken;
    }

    // A number below `limit`, from one byte.
    [[nodiscard]] std::size_t take_below(std::size_t limit) { return take<std::uint8_t>() % limit; }

    // Takes `size` bytes and returns them up to the first NUL.
    [[nodiscard]] std::string take_text(std::size_t size) {
        const Bytes taken = take_bytes(size);
        return {taken.begin(), std::find(taken.begin(), taken.end(), std::uint8_t{0})};
    }

    // Takes at most `size` bytes up to the next NUL, and then one byte more: the NUL, if it was
    // reached.
    [[nodiscard]] std::string take_line(std::size_t size) {
        const auto end = std::find(bytes_.begin(), bytes_.end(), std::uint8_t{0});
        const std::string line =
            take_text(std::min(size, static_cast<std::size_t>(end - bytes_.begin())));
        (void)take_bytes(1);
        return line;
    }
    [[nodiscard]] bool empty() const { return bytes_.empty(); }

    [[nodiscard]] Bytes rest() const { return bytes_; }

private:
    Bytes bytes_;
};

// The part of a text that fits in `size` bytes with its NUL.
inline std::string cut(const std::string& text, std::size_t size) {
    return text.substr(0, size - 1);
}

// The inputs of the frame targets begin with this many bytes, which say what to do. A frame
// follows.
inline constexpr std::size_t kControlSize = 96;

}  // namespace zx::fuzz
