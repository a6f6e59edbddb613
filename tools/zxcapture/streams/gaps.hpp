// The times between the packets of a flow.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace capture {

class Gaps {
public:
    // The last one also has all that are longer.
    static constexpr std::size_t kSteps = 32;

    // A negative time is none: captures that were joined may go back in time.
    void add(std::int64_t gap_us) {
        if (gap_us < 0) {
            return;
        }
        const auto gap = static_cast<std::uint64_t>(gap_us);
        least_ = count_ == 0 ? gap : std::min(least_, gap);
        most_ = std::max(most_, gap);
        sum_ += gap;
        ++count_;
        ++histogram_[std::min<std::size_t>(static_cast<std::size_t>(std::bit_width(gap)),
                                           kSteps - 1)];
    }

    [[nodiscard]] std::uint64_t count() const { return count_; }
    [[nodiscard]] std::uint64_t least_us() const { return least_; }
    [[nodiscard]] std::uint64_t most_us() const { return most_; }
    [[nodiscard]] double mean_us() const {
        return count_ == 0 ? 0 : static_cast<double>(sum_) / static_cast<double>(count_);
    }

    // Number N counts gaps of less than 2 to the power of N microseconds, and not less than half of
    // that.
    [[nodiscard]] const std::array<std::uint64_t, kSteps>& histogram() const { return histogram_; }

private:
    std::uint64_t count_ = 0;
    std::uint64_t least_ = 0;
    std::uint64_t most_ = 0;
    std::uint64_t sum_ = 0;
    std::array<std::uint64_t, kSteps> histogram_{};
};

}  // namespace capture
