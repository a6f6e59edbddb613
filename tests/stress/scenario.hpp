// What every scenario has: its time, and an alarm in case it hangs.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

namespace zx::test {

class Scenario {
public:
    Scenario() { alarm(static_cast<unsigned>(seconds().count()) + kPatience); }
    ~Scenario() { alarm(0); }
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;

    // False when the time is up.
    [[nodiscard]] bool goes_on() const { return Clock::now() < end_; }

    // Prints how much was done, so that a reader can judge the run.
    static void tell(std::uint64_t count, const char* what) {
        std::printf("%llu %s\n", static_cast<unsigned long long>(count), what);
    }

private:
    using Clock = std::chrono::steady_clock;
    static constexpr unsigned kPatience = 60;

    static std::chrono::seconds seconds() {
        const char* const text = std::getenv("ZX_STRESS_SECONDS");
        return std::chrono::seconds(text != nullptr ? std::atoi(text) : 2);
    }

    Clock::time_point end_ = Clock::now() + seconds();
};

// Runs body(0) to body(count - 1), each on a thread of its own, and waits for all of them.
inline void run_threads(std::size_t count, const std::function<void(std::size_t)>& body) {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
}

// Does the same while the caller goes on.
inline std::jthread run_beside(std::size_t count, const std::function<void(std::size_t)>& body) {
    return std::jthread([=] { run_threads(count, body); });
}

}  // namespace zx::test
