// How fast a number grows, from one question to the next.
#pragma once

#include <cstdint>

namespace zx::diag {

// Only one thread at a time may use an object of this class.
class Growth {
public:
    Growth() = default;
    // The number was 0 at this time.
    explicit Growth(std::int64_t began_us) : at_us_(began_us) {}

    // The number is `value` now. The speed is that since the last sample. A sample is taken when
    // the last one is a second old, so several who ask do not make each other's times short.
    void see(std::uint64_t value, std::int64_t now_us) {
        const std::int64_t age = now_us - at_us_;
        if (age > 0 && (age >= kLeastUs || over_us_ < kLeastUs)) {
            per_us_ =
                value > value_ ? static_cast<double>(value - value_) / static_cast<double>(age) : 0;
            over_us_ = age;
        }
        if (age >= kLeastUs) {
            at_us_ = now_us;
            value_ = value;
        }
    }
    [[nodiscard]] double per_s() const { return per_us_ * 1e6; }
    // The time over which this is the speed.
    [[nodiscard]] std::int64_t over_us() const { return over_us_; }

private:
    static constexpr std::int64_t kLeastUs = 1000000;

    std::int64_t at_us_ = 0;  // of the sample
    std::uint64_t value_ = 0;
    double per_us_ = 0;
    std::int64_t over_us_ = 0;
};

}  // namespace zx::diag
