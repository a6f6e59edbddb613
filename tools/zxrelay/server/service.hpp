// Runs the relay as a server: daemon, pid file, watchdog, user.
#pragma once

#include <optional>
#include <string>

#include "options.hpp"
#include "server/log.hpp"
#include "server/user.hpp"
#include "zxcommon.hpp"

namespace relay {

// Opens /dev/null for each standard stream that is closed, so that no later descriptor gets its
// number.
void fill_standard_descriptors();

class Service {
public:
    // A daemon closes the descriptors that it has inherited from its caller.
    explicit Service(const Options& options);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Changes to the user, and lets the log open its file by its path again: see Log::settle().
    // Returns in the process that relays, which may be a new one. With --daemon, the process that
    // the user started waits until the daemon is up or has failed, and exits. Throws a Failure.
    void start(const User& user, Log& log);

    // Reports that the relay is up: the process that the user started exits.
    void announce_up();

    // Reports that the relay has delivered its stream: the watchdog will end, too.
    void announce_delivered();

    // Reports why the relay ends: to the user who started it and, after start(), to the log.
    void report(const std::string& sentence);

private:
    void detach();

    const Options& options_;
    bool is_started_ = false;
    // Connects a daemon with the process that the user started, while that one waits.
    std::optional<zxcommon::Descriptor> starter_;
};

}  // namespace relay
