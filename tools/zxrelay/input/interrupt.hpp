// Waits for descriptors, until another thread ends the wait.
#pragma once

#include <atomic>

#include "common/event.hpp"

namespace relay {

inline constexpr int kForever = -1;

class Interrupt {
public:
    // From now on no wait lasts. Called by any thread.
    void raise();

    // Waits until `fd` or `other` is readable, or the time is over. Returns whether `fd` is
    // readable. -1 stands for no descriptor, and kForever for no limit.
    [[nodiscard]] bool wait(int fd, int timeout_ms, int other = -1) const;

    void pause(int milliseconds) const {
        [[maybe_unused]] const bool none = wait(-1, milliseconds);
    }

    [[nodiscard]] bool is_raised() const { return is_raised_; }

    // Readable after raise().
    [[nodiscard]] int fd() const { return event_.fd(); }

private:
    const tools::Event event_;
    std::atomic<bool> is_raised_{false};
};

[[nodiscard]] bool is_readable(int fd);

}  // namespace relay
