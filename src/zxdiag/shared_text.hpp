// A short text that one thread writes while others may read it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zx::diag {

// A reader may see a part of the old and a part of the new text, but never anything else, and
// always an end. It also sees what was stored before the part that it has read: if that says that
// the text is about to change, it knows that the copy may be a mixture.
template <std::size_t Size>
class SharedText {
    static_assert(Size % sizeof(std::uint64_t) == 0);

public:
    // Takes at most Size - 1 bytes of `text`, and at most `limit`.
    void set(const char* text, std::size_t limit = Size) {
        char bytes[Size] = {};
        std::memcpy(bytes, text, strnlen(text, limit < Size ? limit : Size - 1));
        for (std::size_t i = 0; i < kWords; ++i) {
            std::uint64_t word;
            std::memcpy(&word, bytes + i * sizeof word, sizeof word);
            words_[i].store(word, std::memory_order_release);
        }
    }

    struct Copy {
        char text[Size];
    };
    [[nodiscard]] Copy copy() const {
        Copy out;
        for (std::size_t i = 0; i < kWords; ++i) {
            const std::uint64_t word = words_[i].load(std::memory_order_acquire);
            std::memcpy(out.text + i * sizeof word, &word, sizeof word);
        }
        out.text[Size - 1] = '\0';
        return out;
    }

private:
    static constexpr std::size_t kWords = Size / sizeof(std::uint64_t);
    std::atomic<std::uint64_t> words_[kWords]{};
};

}  // namespace zx::diag
