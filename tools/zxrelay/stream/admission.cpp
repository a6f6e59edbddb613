#include "stream/admission.hpp"

namespace relay {

Admission::Verdict Admission::enter(const Address& address, Ticket& ticket) {
    if (!rules_.allowed.empty() && !contains(rules_.allowed, address)) {
        return Verdict::not_allowed;
    }
    if (inside_ >= most_) {
        return Verdict::too_many;
    }
    if (!enter_address(address)) {
        return Verdict::too_many_of_address;
    }
    ++inside_;
    ticket = Ticket(this, Leave{address});
    return Verdict::welcome;
}

bool Admission::enter_address(const Address& address) {
    if (rules_.most_per_address == 0) {
        return true;
    }
    const tools::MutexGuard lock(mutex_);
    unsigned& count = by_address_[address];
    const bool is_welcome = count < rules_.most_per_address;
    count += is_welcome ? 1 : 0;
    return is_welcome;
}

void Admission::leave(const Address& address) {
    --inside_;
    if (rules_.most_per_address == 0) {
        return;
    }
    const tools::MutexGuard lock(mutex_);
    if (const auto found = by_address_.find(address);
        found != by_address_.end() && --found->second == 0) {
        by_address_.erase(found);
    }
}

}  // namespace relay
