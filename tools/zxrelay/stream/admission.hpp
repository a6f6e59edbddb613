// Clients that are let in, and how many there may be.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/mutex.hpp"
#include "config/network.hpp"
#include "zxcommon.hpp"

namespace relay {

class Admission {
public:
    struct Rules {
        unsigned most_per_address;     // 0: no limit
        std::vector<Network> allowed;  // empty: all
    };
    Admission(Rules rules, unsigned most) : rules_(std::move(rules)), most_(most) {}

    // How many clients there may be. Those that are in stay.
    void set_most(unsigned most) { most_ = most; }

    struct Leave {
        Address address;
        void operator()(Admission* admission) const { admission->leave(address); }
    };
    // A client has it for as long as it is there.
    using Ticket = std::unique_ptr<Admission, Leave>;

    enum class Verdict { welcome, not_allowed, too_many_of_address, too_many };
    // Called by one thread. Sets `ticket` if the client is welcome.
    Verdict enter(const Address& address, Ticket& ticket);

private:
    bool enter_address(const Address& address);
    void leave(const Address& address);

    const Rules rules_;
    std::atomic<unsigned> most_;
    std::atomic<unsigned> inside_{0};  // tickets come back from all senders
    tools::Mutex mutex_;
    std::map<Address, unsigned> by_address_ ZX_GUARDED_BY(mutex_);  // if they are limited
};

using Ticket = Admission::Ticket;

// A connection on its way from the door to a sender.
struct Guest {
    std::uint64_t number;  // unique in the process
    zxcommon::Descriptor fd;
    std::string peer;
    Ticket ticket;
};

}  // namespace relay
