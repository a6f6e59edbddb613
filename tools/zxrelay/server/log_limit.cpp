#include "server/log_limit.hpp"

#include "common/seconds.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kMostLines = 20;

}  // namespace

LogLimit::~LogLimit() {
    report();
}

bool LogLimit::admits() {
    const tools::MutexGuard lock(mutex_);
    const std::uint64_t now = zxtime_api_upTimeUs();
    report_if_over(now);
    if (lines_ == 0) {
        start_us_ = now;
    }
    return ++lines_ <= kMostLines;
}

bool LogLimit::report_when_due() {
    const tools::MutexGuard lock(mutex_);
    report_if_over(zxtime_api_upTimeUs());
    return lines_ > kMostLines;
}

void LogLimit::report_if_over(std::uint64_t now) {
    if (now - start_us_ >= seconds_ * kMicro) {
        report();
    }
}

void LogLimit::report() {
    if (lines_ > kMostLines) {
        log({Level::notice, kTag}, "%llu more %s in the last minute",
            static_cast<unsigned long long>(lines_ - kMostLines), what_);
    }
    lines_ = 0;
}

}  // namespace relay
