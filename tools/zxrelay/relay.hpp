// The relay itself: sockets, threads, and what is done beside them.
#pragma once

#include <signal.h>

#include <functional>

#include "options.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"

namespace relay {

class Fanout;
class Monitor;
class Source;

class Relay {
public:
    // Opens the sockets: here a Failure still reaches the person who starts the relay, and
    // whoever connects while a watchdog starts it again waits in their queues.
    explicit Relay(const Options& options);

    enum class End { signal, delivered };

    // Relays until one of `signals`, which are blocked, ends it, or until its only source is
    // delivered. `is_up` is called when the threads work. Once.
    End run(const sigset_t& signals, const std::function<void()>& is_up);

private:
    End watch(const sigset_t& signals, const std::function<bool()>& is_delivered,
              Monitor& monitor) const;

    const Options& options_;
    const Input input_;
    const Endpoint output_;
    zxcommon::Descriptor source_;
    zxcommon::Descriptor listener_;
};

}  // namespace relay
