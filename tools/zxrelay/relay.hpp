// The relay itself: its sockets, its threads and the loop of the main thread.
#pragma once

#include <signal.h>

#include <functional>
#include <optional>
#include <vector>

#include "input/inputs.hpp"
#include "options.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

namespace relay {

class Log;
class Notifier;

class Relay {
public:
    // Opens the sockets. They are opened before the watchdog starts, for two reasons: the user who
    // starts the relay sees a Failure, and clients that connect while a worker is restarted wait
    // in the queues of the sockets.
    explicit Relay(const Options& options);

    enum class End { signal, delivered };

    // Relays until SIGINT or SIGTERM arrives, or until the stream of the only source is delivered.
    // SIGHUP opens the log again. The caller has blocked `signals`. Calls `on_up` when the threads
    // run. Call run() only once.
    End run(const sigset_t& signals, Log& log_file, const std::function<void()>& on_up);

private:
    void announce_up(const Notifier& notifier, const std::string& input) const;
    // Waits for signals, and goes on as long as `goes_on` says so.
    End run_main_loop(const sigset_t& signals, Log& log_file, const Notifier& notifier,
                      const std::function<bool()>& goes_on) const;

    const Options& options_;
    const Endpoint output_;
    std::vector<OpenInput> inputs_;
    zxcommon::Descriptor listener_;
    std::optional<Endpoint> status_;  // nothing without a status page
    zxcommon::Descriptor status_listener_;
};

}  // namespace relay
