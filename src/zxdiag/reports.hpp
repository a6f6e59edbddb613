// Reports that are kept as long as the process lives.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "internal/mutex.hpp"

namespace zx::diag {

// A report never changes once it can be seen, so it is read without a lock.
template <typename Report, std::size_t Most>
class Reports {
public:
    // `fill` writes all of the report and returns true, or false if there is nothing to report;
    // only one thread at a time is in it. NULL: nothing was reported, or there is no room.
    template <typename Fill>
    const Report* add(Fill fill) {
        const MutexGuard guard(mutex_);
        const std::size_t count = count_.load(std::memory_order_relaxed);
        Report& report = reports_[std::min(count, Most)];
        if (!fill(report)) {
            return nullptr;
        }
        if (count == Most) {
            left_out_.fetch_add(1, std::memory_order_relaxed);
            return nullptr;
        }
        count_.store(count + 1, std::memory_order_release);
        return &report;
    }

    [[nodiscard]] const Report* begin() const { return reports_; }
    [[nodiscard]] const Report* end() const {
        return reports_ + count_.load(std::memory_order_acquire);
    }
    [[nodiscard]] std::uint64_t left_out() const {
        return left_out_.load(std::memory_order_relaxed);
    }

    // For the child of a fork, which has one thread and begins anew.
    void clear() {
        mutex_.forget_other_threads();
        count_.store(0, std::memory_order_relaxed);
        left_out_.store(0, std::memory_order_relaxed);
    }

private:
    Mutex mutex_;
    std::atomic<std::size_t> count_{0};
    std::atomic<std::uint64_t> left_out_{0};
    Report reports_[Most + 1]{};  // the last one is never seen
};

}  // namespace zx::diag
