// The relay itself: its sockets, its threads and the loop of the main thread.
#pragma once

#include <signal.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "config/config.hpp"
#include "input/pool.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

namespace relay {

class DemandStations;
class Log;
class Notifier;
class Senders;
class Stations;

class Relay {
public:
    // Opens the sockets. They are opened before the watchdog starts, for two reasons: the user who
    // starts the relay sees a Failure, and clients that connect while a worker is restarted wait
    // in the queues of the sockets.
    Relay(const CommandLine& command_line, const Config& config);

    enum class End { signal, delivered };

    // Relays until SIGINT or SIGTERM arrives, or until the streams of all channels are delivered.
    // SIGHUP opens the log and reads the configuration again. The caller has blocked `signals`.
    // Calls `on_up` when the threads run. Call run() only once.
    End run(const sigset_t& signals, Log& log_file, const std::function<void()>& on_up);

private:
    void announce_up(const Notifier& notifier) const;
    // Waits for signals, and goes on as long as `goes_on` says so.
    End run_main_loop(const sigset_t& signals, const Notifier& notifier, Log& log_file,
                      const std::function<void()>& reload, const std::function<bool()>& goes_on);
    // Returns false if the file is refused. Then it logs an error with the `consequence`.
    bool read_again(const char* consequence);
    void reload(Stations& stations, DemandStations& demand, Senders& senders);
    [[nodiscard]] bool is_once() const;

    const CommandLine& command_line_;
    const Options options_;                           // those that do not change
    const std::map<std::string, std::string> fixed_;  // those that were set
    Config config_;
    const Endpoint output_;
    InputPool inputs_;
    zxcommon::Descriptor listener_;
    std::optional<Endpoint> status_;  // nothing without a status page
    zxcommon::Descriptor status_listener_;
};

}  // namespace relay
