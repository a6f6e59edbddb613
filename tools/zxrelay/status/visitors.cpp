#include "status/visitors.hpp"

#include <netinet/in.h>

#include <algorithm>
#include <cstring>

namespace relay {
namespace {

constexpr std::chrono::seconds kRequestTime(5);
constexpr std::chrono::seconds kAnswerTime(30);
constexpr std::ptrdiff_t kMost = 48;

// An IPv4 address, or the first half of an IPv6 address: one host can have all addresses that begin
// with this half.
std::uint64_t network_of(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, address, sizeof in);
        return in.sin_addr.s_addr;
    }
    sockaddr_in6 in6{};
    std::memcpy(&in6, address, sizeof in6);
    if (IN6_IS_ADDR_V4MAPPED(&in6.sin6_addr) != 0) {
        return in6.sin6_addr.s6_addr32[3];
    }
    std::uint64_t network = 0;
    std::memcpy(&network, &in6.sin6_addr, sizeof network);
    return network;
}

}  // namespace

void Visitors::add(const void* id, int fd, const sockaddr* address) {
    all_.push_back({id, fd, network_of(address), Clock::now()});
    if (std::ranges::count(all_, false, &Visitor::has_ended) > kMost) {
        make_room();
    }
}

void Visitors::remove(const void* id) {
    all_.remove_if([=](const Visitor& visitor) { return visitor.id == id; });
}

void Visitors::end_overdue() {
    const Clock::time_point now = Clock::now();
    for (Visitor& visitor : all_) {
        if (now - visitor.since > (visitor.is_answered ? kAnswerTime : kRequestTime)) {
            end(visitor);
        }
    }
}

void Visitors::begin_answer(const void* id) {
    const auto place = std::ranges::find(all_, id, &Visitor::id);
    if (place != all_.end()) {
        place->since = Clock::now();
        place->is_answered = true;
        all_.splice(all_.end(), all_, place);
    }
}

std::size_t Visitors::connections_of(std::uint64_t network) const {
    return static_cast<std::size_t>(std::ranges::count_if(all_, [=](const Visitor& visitor) {
        return !visitor.has_ended && visitor.network == network;
    }));
}

// Ends the oldest connection of the network that has most, but not the one that has just come.
// Answers are ended last.
void Visitors::make_room() {
    const auto busiest = std::ranges::max_element(all_, {}, [this](const Visitor& visitor) {
        return visitor.has_ended ? 0 : connections_of(visitor.network);
    });
    const auto may_go = [&](const Visitor& visitor) {
        return !visitor.has_ended && visitor.network == busiest->network &&
               &visitor != &all_.back();
    };
    auto oldest = std::ranges::find_if(
        all_, [&](const Visitor& visitor) { return may_go(visitor) && !visitor.is_answered; });
    if (oldest == all_.end()) {
        oldest = std::ranges::find_if(all_, may_go);
    }
    end(*oldest);
}

void Visitors::end(Visitor& visitor) {
    if (!visitor.has_ended) {
        visitor.has_ended = true;
        shutdown(visitor.fd, SHUT_RDWR);
    }
}

}  // namespace relay
