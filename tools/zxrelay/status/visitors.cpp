#include "status/visitors.hpp"

#include <netinet/in.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace relay {
namespace {

constexpr std::chrono::seconds kRequestTime(5);
constexpr std::chrono::seconds kAnswerTime(30);
constexpr std::size_t kMost = 48;
constexpr std::size_t kMostOfNetwork = 16;
constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6NetworkSize = 8;  // one host may have all addresses of such a network

// The bytes of an IPv4 address, or of the network of an IPv6 address.
std::string network_of(const sockaddr* address) {
    if (address->sa_family == AF_INET) {
        sockaddr_in in{};
        std::memcpy(&in, address, sizeof in);
        return {reinterpret_cast<const char*>(&in.sin_addr), kIpv4Size};
    }
    sockaddr_in6 in6{};
    std::memcpy(&in6, address, sizeof in6);
    const char* const bytes = reinterpret_cast<const char*>(&in6.sin6_addr);
    return IN6_IS_ADDR_V4MAPPED(&in6.sin6_addr) != 0 ? std::string(bytes + 12, kIpv4Size)
                                                     : std::string(bytes, kIpv6NetworkSize);
}

}  // namespace

void Visitors::add(const void* id, int fd, const sockaddr* address) {
    const std::string network = network_of(address);
    all_.push_back({id, fd, network, Clock::now()});
    make_room(kMostOfNetwork, [&](const Visitor& other) { return other.network == network; });
    make_room(kMost, [](const Visitor&) { return true; });
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

Visitors::Place Visitors::find(const void* id) {
    return std::ranges::find_if(all_, [=](const Visitor& visitor) { return visitor.id == id; });
}

void Visitors::begin(const void* id, bool is_answered) {
    const Place place = find(id);
    if (place == all_.end()) {
        return;
    }
    place->since = Clock::now();
    place->is_answered = is_answered;
    all_.splice(all_.end(), all_, place);
}

// Ends the oldest connection without an answer if more than `most` of those that count are left.
void Visitors::make_room(std::size_t most, const std::function<bool(const Visitor&)>& counts) {
    const auto is_left = [&](const Visitor& one) { return !one.has_ended && counts(one); };
    if (static_cast<std::size_t>(std::ranges::count_if(all_, is_left)) <= most) {
        return;
    }
    const auto oldest = std::ranges::find_if(
        all_, [&](const Visitor& one) { return is_left(one) && !one.is_answered; });
    if (oldest != all_.end()) {
        end(*oldest);
    }
}

void Visitors::end(Visitor& visitor) {
    if (!visitor.has_ended) {
        visitor.has_ended = true;
        shutdown(visitor.fd, SHUT_RDWR);
    }
}

}  // namespace relay
