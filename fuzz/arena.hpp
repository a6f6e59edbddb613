// Compares a fast implementation with the plain algorithm. The same call runs on the same bytes
// twice: in guarded memory, where an access outside crashes, and in ordinary memory.
#pragma once

#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "support.hpp"

namespace zx::fuzz {

// Where the buffers of a call are in the arena: right after the guard page in front, right before
// the one at the end, or `shift` bytes after the one in front.
struct Edge {
    bool is_last = false;
    std::size_t shift = 0;
};
inline constexpr Edge kFront{};
inline constexpr Edge kBack{true};

// Bytes that a call may access; `at` counts from the first byte of the arena.
struct Range {
    std::size_t at;
    std::size_t size;
};

// The bytes that a call reads and those that it writes.
struct Pair {
    Range in;
    Range out;
};

// Memory between two inaccessible pages, and an ordinary copy of it.
class Arena {
public:
    explicit Arena(std::size_t least) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        size_ = (least + page - 1) / page * page;
        void* const memory = mmap(nullptr, size_ + 2 * page, PROT_NONE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        require(memory != MAP_FAILED, "there is memory");
        real_ = static_cast<std::uint8_t*>(memory) + page;
        require(mprotect(real_, size_, PROT_READ | PROT_WRITE) == 0, "it can be used");
        plain_.resize(size_);
        content_.resize(size_);
        std::uint32_t state = 1;
        for (std::uint8_t& byte : content_) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<std::uint8_t>(state >> 24U);
        }
    }
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    // The bytes that compare() copies into the arena before each call.
    [[nodiscard]] std::uint8_t* content() { return content_.data(); }

    // `distance`: from the first byte that is read to the first one that is written.
    [[nodiscard]] Pair place(std::size_t in_size, std::size_t out_size, std::ptrdiff_t distance,
                             Edge edge) const {
        const std::size_t before = distance < 0 ? static_cast<std::size_t>(-distance) : 0;
        const std::size_t after = distance > 0 ? static_cast<std::size_t>(distance) : 0;
        const std::size_t whole = std::max(before + in_size, after + out_size);
        require(whole + edge.shift <= size_, "the arena has room");
        const std::size_t first = edge.is_last ? size_ - whole : edge.shift;
        return {{first + before, in_size}, {first + after, out_size}};
    }

    // Places a message in the guarded memory, for calls that only read.
    [[nodiscard]] const std::uint8_t* put(Bytes message, Edge edge) {
        const Pair at = place(message.size(), 0, 0, edge);
        ASAN_UNPOISON_MEMORY_REGION(real_, size_);
        std::copy(message.begin(), message.end(), real_ + at.in.at);
        ASAN_POISON_MEMORY_REGION(real_, size_);
        ASAN_UNPOISON_MEMORY_REGION(real_ + at.in.at, at.in.size);
        return real_ + at.in.at;
    }

    // Runs `call(in, out, plainly)` twice: in the guarded memory, and with `plainly` set in the
    // copy. Both results and all bytes of the arena must be the same.
    template <typename Call>
    void compare(const Pair& at, const char* what, const Call& call) {
        ASAN_UNPOISON_MEMORY_REGION(real_, size_);
        std::memcpy(real_, content_.data(), size_);
        ASAN_POISON_MEMORY_REGION(real_, size_);
        ASAN_UNPOISON_MEMORY_REGION(real_ + at.in.at, at.in.size);
        ASAN_UNPOISON_MEMORY_REGION(real_ + at.out.at, at.out.size);
        const auto result = call(real_ + at.in.at, real_ + at.out.at, false);
        ASAN_UNPOISON_MEMORY_REGION(real_, size_);
        std::memcpy(plain_.data(), content_.data(), size_);
        require(call(plain_.data() + at.in.at, plain_.data() + at.out.at, true) == result, what);
        require(std::memcmp(real_, plain_.data(), size_) == 0, what);
    }

private:
    std::size_t size_ = 0;
    std::uint8_t* real_ = nullptr;
    std::vector<std::uint8_t> plain_;
    std::vector<std::uint8_t> content_;
};

// Bytes. The blocks that are processed together do not overlap with others beyond this distance.
inline constexpr std::ptrdiff_t kFarthest = 300;

}  // namespace zx::fuzz
