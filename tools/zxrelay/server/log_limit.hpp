// A limit for log lines that strangers cause, who can do so as often as they like.
#pragma once

#include <cstdint>

#include "common/mutex.hpp"

namespace relay {

// Admits the first lines of one kind in each minute and counts the others. When the minute is over,
// it logs their number. Any thread may call it.
class LogLimit {
public:
    // `what` completes "12 more ...", such as "clients have connected". It must outlive the limit.
    explicit LogLimit(const char* what, unsigned seconds = 60) : what_(what), seconds_(seconds) {}
    ~LogLimit();  // logs the last number
    LogLimit(const LogLimit&) = delete;
    LogLimit& operator=(const LogLimit&) = delete;

    // True if the caller shall log its line.
    [[nodiscard]] bool admits();

    // Logs the number when it is due. The owner calls it about once a second while it is needed:
    // returns true while there is a number that is not logged yet.
    bool report_when_due();

private:
    void report_if_over(std::uint64_t now) ZX_REQUIRES(mutex_);
    void report() ZX_REQUIRES(mutex_);

    const char* const what_;
    const unsigned seconds_;
    tools::Mutex mutex_;
    std::uint64_t start_us_ ZX_GUARDED_BY(mutex_) = 0;  // of the current minute
    // In the current minute, with those that were not admitted.
    std::uint64_t lines_ ZX_GUARDED_BY(mutex_) = 0;
};

}  // namespace relay
