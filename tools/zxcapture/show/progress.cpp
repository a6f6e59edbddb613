#include "show/progress.hpp"

#include <time.h>

#include <cstdio>

namespace capture {
namespace {

constexpr std::int64_t kIntervalMs = 250;

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

Progress::Progress(bool shown) : shown_(shown), due_ms_(now_ms() + kIntervalMs) {}

Progress::~Progress() {
    if (is_on_screen_) {
        std::fputs("\r    \r", stderr);
    }
}

void Progress::show_when_due(const Source& source) {
    if (!shown_ || now_ms() < due_ms_) {
        return;
    }
    due_ms_ = now_ms() + kIntervalMs;
    if (const auto position = source.position()) {
        std::fprintf(stderr, "\r%3.0f%%", *position * 100);
        is_on_screen_ = true;
    }
}

}  // namespace capture
