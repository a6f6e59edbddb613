// The last lines of the log.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zx::diag {

// Any thread may add a line at any time, also in a signal handler. Nobody waits: a line is left out
// if its place is still being written by a thread that has been overtaken by as many lines as the
// ring has.
class LineRing {
public:
    static constexpr std::size_t kLines = 4096;
    static constexpr std::size_t kLongest = 496;  // bytes; a longer line is cut

    struct Line {
        char text[kLongest + 1];  // with a NUL
        std::size_t size;
    };

    void add(const char* text, std::size_t size) {
        const std::uint64_t at = next_.fetch_add(1, std::memory_order_relaxed);
        Slot& slot = slots_[at % kLines];
        std::uint64_t seen = slot.state.load(std::memory_order_relaxed);
        if (seen >= being_written(at) || is_being_written(seen) ||
            !slot.state.compare_exchange_strong(seen, being_written(at),
                                                std::memory_order_acquire)) {
            return;
        }
        const std::size_t whole = std::min(size, kLongest);
        slot.size.store(whole, std::memory_order_release);
        for (std::size_t i = 0; i * kWord < whole; ++i) {
            std::uint64_t word = 0;
            std::memcpy(&word, text + i * kWord, std::min(kWord, whole - i * kWord));
            slot.words[i].store(word, std::memory_order_release);
        }
        if (size > kLongest) {
            std::uint64_t word = 0;
            std::memcpy(&word, text + kLongest - kWord, kWord - 3);
            std::memcpy(reinterpret_cast<char*>(&word) + kWord - 3, "...", 3);
            slot.words[kWords - 1].store(word, std::memory_order_release);
        }
        slot.state.store(complete(at), std::memory_order_release);
    }

    // Lines have numbers: from begin() to before end().
    [[nodiscard]] std::uint64_t end() const { return next_.load(std::memory_order_relaxed); }
    [[nodiscard]] std::uint64_t begin() const {
        const std::uint64_t end = this->end();
        return std::max(end < kLines ? 0 : end - kLines, first_.load(std::memory_order_relaxed));
    }

    // unfinished: it is being written, or was left out; gone: another line has taken its place.
    enum class Found { line, unfinished, gone };

    [[nodiscard]] Found read(std::uint64_t at, Line& out) const {
        const Slot& slot = slots_[at % kLines];
        const std::uint64_t state = slot.state.load(std::memory_order_acquire);
        if (state != complete(at)) {
            return state < complete(at) ? Found::unfinished : Found::gone;
        }
        // A word of another line was stored after the state of that line, so the state that is read
        // last is then another one.
        out.size = std::min(slot.size.load(std::memory_order_acquire), kLongest);
        for (std::size_t i = 0; i * kWord < out.size; ++i) {
            const std::uint64_t word = slot.words[i].load(std::memory_order_acquire);
            std::memcpy(out.text + i * kWord, &word, kWord);
        }
        out.text[out.size] = '\0';
        return slot.state.load(std::memory_order_relaxed) == state ? Found::line : Found::gone;
    }

    // For the child of a fork: forgets the lines, and the threads that were writing some.
    void begin_anew() {
        first_.store(end(), std::memory_order_relaxed);
        for (Slot& slot : slots_) {
            if (is_being_written(slot.state.load(std::memory_order_relaxed))) {
                slot.state.store(0, std::memory_order_relaxed);
            }
        }
    }

private:
    static constexpr std::size_t kWord = sizeof(std::uint64_t);
    static constexpr std::size_t kWords = kLongest / kWord;
    static_assert(kLongest % kWord == 0);

    // 0: never used. The states of a slot only grow.
    static constexpr std::uint64_t being_written(std::uint64_t at) { return 2 * at + 1; }
    static constexpr std::uint64_t complete(std::uint64_t at) { return 2 * at + 2; }
    static constexpr bool is_being_written(std::uint64_t state) { return state % 2 != 0; }

    struct alignas(64) Slot {
        std::atomic<std::uint64_t> state{0};
        std::atomic<std::size_t> size{0};
        std::atomic<std::uint64_t> words[kWords]{};
    };

    Slot slots_[kLines]{};
    std::atomic<std::uint64_t> next_{0};
    std::atomic<std::uint64_t> first_{0};  // the lines before are forgotten
};

}  // namespace zx::diag
