// Clients that are let in, and how many there may be.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "zxcommon.hpp"

namespace relay {

class Admission {
public:
    explicit Admission(unsigned limit) : limit_(limit) {}

    struct Leave {
        void operator()(Admission* admission) const { --admission->inside_; }
    };
    // A client has it for as long as it is there.
    using Ticket = std::unique_ptr<Admission, Leave>;

    // Called by one thread. Returns null if there are as many clients as there may be.
    Ticket enter() {
        if (inside_ >= limit_) {
            return nullptr;
        }
        ++inside_;
        return Ticket(this);
    }
    [[nodiscard]] unsigned limit() const { return limit_; }

private:
    const unsigned limit_;
    std::atomic<unsigned> inside_{0};  // tickets come back from all senders
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
