// Who is in which multicast group, as the reports of IGMP and MLD say.
#pragma once

#include <cstdint>
#include <set>

#include "packet/groups.hpp"
#include "streams/flow.hpp"

namespace capture {

struct Member {
    Address group;
    Address host;
    Vlans vlans;
    bool is_in = false;
    unsigned version = 0;       // of IGMP or MLD, in the last report
    std::int64_t since_us = 0;  // when it joined or left
    std::int64_t last_us = 0;   // the last report
    std::uint64_t reports = 0;
    std::uint16_t sources = 0;  // that the last report names

    // What the host takes: from all sources, but for some, or from these alone.
    static constexpr std::size_t kMostSources = 64;
    bool takes_all = false;
    bool takes_others = false;  // that had no room, or were not captured
    std::set<Address> taken;

    void follow(const GroupRecord& record);

private:
    void allow(const GroupRecord& record);
    void block(const GroupRecord& record);
};

class Members {
public:
    using Map = BoundedMap<std::tuple_size_v<EndsKey>, Member>;

    explicit Members(std::size_t most) : map_(most) {}

    void add(const Frame& frame, const Packet& packet, std::int64_t now_us);

    [[nodiscard]] const Map& map() const { return map_; }

private:
    void take(const GroupRecord& record, const Packet& packet, unsigned version,
              std::int64_t now_us);

    Map map_;
};

}  // namespace capture
