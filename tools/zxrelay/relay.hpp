// The relay itself: its sockets, its threads and the loop of the main thread.
#pragma once

#include <signal.h>

#include <functional>

#include "options.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

namespace relay {

class Monitor;

class Relay {
public:
    // Opens the sockets. They are opened before the watchdog starts, for two reasons: the user who
    // starts the relay sees a Failure, and clients that connect while a worker is restarted wait
    // in the queues of the sockets.
    explicit Relay(const Options& options);

    enum class End { signal, delivered };

    // Relays until SIGINT or SIGTERM arrives, or until the stream of the only source is delivered.
    // The caller has blocked `signals`. Calls `on_up` when the threads run. Call run() only once.
    End run(const sigset_t& signals, const std::function<void()>& on_up);

private:
    End run_main_loop(const sigset_t& signals, const std::function<bool()>& is_delivered,
                      Monitor& monitor) const;

    const Options& options_;
    const Input input_;
    const Endpoint output_;
    zxcommon::Descriptor source_;
    zxcommon::Descriptor listener_;
};

}  // namespace relay
