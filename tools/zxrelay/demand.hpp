// The channels that are open because clients have asked for them.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/event.hpp"
#include "common/mutex.hpp"
#include "config/network.hpp"
#include "input/interrupt.hpp"
#include "options.hpp"
#include "server/log_limit.hpp"
#include "station.hpp"
#include "stream/on_demand.hpp"
#include "stream/senders.hpp"
#include "stream/worker.hpp"

namespace relay {

// A thread opens them, and closes them some seconds after the last client has left.
class DemandStations {
public:
    // `usual`: has the sizes and times for these channels.
    DemandStations(const OnDemandOptions& options, const ChannelOptions& usual, Senders& senders,
                   const Surroundings& around);
    ~DemandStations() { stop(); }
    DemandStations(const DemandStations&) = delete;
    DemandStations& operator=(const DemandStations&) = delete;

    void start() { worker_.start(); }  // throws a Failure
    // The senders may still run: no channel is opened any more.
    void stop();

    // An OnDemand. Any thread may call it; it does not wait. `coming` is no promise: opening the
    // channel may still fail.
    Demand ask(const std::string& name, bool opens);

    // Replaces the options. Channels whose address is no longer allowed are closed.
    void change(const OnDemandOptions& options, const ChannelOptions& usual);

private:
    struct Entry {
        std::unique_ptr<Station> station;  // null: the thread has not opened it yet, or could not
        bool has_failed = false;           // it is not tried again for a moment
        std::string interface {};          // on which it is open
        std::uint64_t wanted_us = 0;       // when it was last asked for or had a client
    };
    void run();
    void open_asked();
    // Those that are to be opened.
    [[nodiscard]] std::vector<std::string> asked() const ZX_REQUIRES(mutex_);
    std::unique_ptr<Station> try_open(const std::string& name, const ChannelOptions& usual);
    void close_idle();
    [[nodiscard]] bool is_over(const std::string& name, Entry& entry, std::uint64_t now_us) const
        ZX_REQUIRES(mutex_);

    tools::Mutex mutex_;
    OnDemandOptions options_ ZX_GUARDED_BY(mutex_);
    ChannelOptions usual_ ZX_GUARDED_BY(mutex_);
    std::vector<Network> networks_ ZX_GUARDED_BY(mutex_);
    // By name; only the thread removes one.
    std::map<std::string, Entry> entries_ ZX_GUARDED_BY(mutex_);

    Senders& senders_;
    const Surroundings around_;
    LogLimit failed_{"channels could not be opened on demand"};
    Interrupt interrupt_;
    const tools::Event wake_;
    Worker worker_;
};

}  // namespace relay
