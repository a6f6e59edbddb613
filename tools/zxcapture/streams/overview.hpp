// Finds what belongs to each flow, when it is shown.
#pragma once

#include <map>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "streams/streams.hpp"

namespace capture {

class Overview {
public:
    // The tables must not change while this is used. `active_alone`: it knows nothing of flows that
    // were idle, which makes it quick.
    explicit Overview(const Streams& streams, bool active_alone = false);

    struct Rtp {
        std::uint32_t sender = 0;
        const RtpSource* source = nullptr;
    };
    struct PidOf {
        std::uint16_t pid = 0;
        const Pid* its = nullptr;
    };
    [[nodiscard]] const std::vector<Rtp>& sources_of(const Flow& flow) const;
    [[nodiscard]] const std::vector<PidOf>& pids_of(const Flow& flow) const;  // sorted
    // Hosts that are in the group to which the flow goes, in the same VLAN.
    [[nodiscard]] std::size_t members_of(const Flow& flow) const;

    // Of all sources.
    struct RtpSum {
        std::uint64_t lost = 0;
        std::uint64_t disordered = 0;
        std::uint64_t duplicates = 0;
        double jitter_us = 0;  // the greatest
    };
    [[nodiscard]] RtpSum rtp_sum(const Flow& flow) const;

private:
    std::unordered_map<std::uint32_t, std::vector<Rtp>> sources_;
    std::unordered_map<std::uint32_t, std::vector<PidOf>> pids_;
    std::map<std::pair<Address, Vlans>, std::size_t> members_;
};

}  // namespace capture
