// What makes a server of the program: daemon, pid file, watchdog, user.
#pragma once

#include <optional>
#include <string>

#include "options.hpp"
#include "zxcommon.hpp"

namespace relay {

// So that nothing that is opened later gets the number of a standard stream.
void fill_standard_descriptors();

class Service {
public:
    // A daemon does without what its caller left open.
    explicit Service(const Options& options);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Returns in the process that relays, which may be another one. The process that was started
    // waits until a daemon is up and ends with its success. Throws a Failure.
    void enter();

    // The relay is up: whoever started it may go on.
    void announce_up();

    // The relay has delivered all there was: a watchdog ends, too.
    void announce_delivered();

    // Says why the relay ends: to the person who started it and, once it was entered, in the log.
    void report(const std::string& sentence);

private:
    void detach();
    void change_user() const;

    const Options& options_;
    bool is_entered_ = false;
    std::optional<zxcommon::Descriptor>
        starter_;  // the process that was started, as long as it waits
};

}  // namespace relay
