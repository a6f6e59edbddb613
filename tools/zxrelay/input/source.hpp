// An input of the relay.
#pragma once

#include <atomic>

#include "input/interrupt.hpp"
#include "zxcommon.hpp"

namespace relay {

class Source {
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    // The body of the receiving thread. Returns after interrupt(), or when it has finished.
    virtual void run() = 0;

    // Ends run() at once. Called by another thread.
    void interrupt() { interrupt_.raise(); }

    // Waits, until the time is over or interrupt() is called.
    void pause(int milliseconds) const { interrupt_.pause(milliseconds); }

    // True when nothing more will come, for example with --once.
    [[nodiscard]] bool finished() const { return finished_; }
    [[nodiscard]] bool is_done() const { return finished_ || interrupt_.is_raised(); }

protected:
    Interrupt interrupt_;
    std::atomic<bool> finished_{false};
};

}  // namespace relay
