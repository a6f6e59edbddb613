#include "streams/overview.hpp"

#include <algorithm>

namespace capture {
namespace {

template <typename Map>
const typename Map::mapped_type& at_or_none(const Map& map, std::uint32_t number) {
    static const typename Map::mapped_type none{};
    const auto at = map.find(number);
    return at == map.end() ? none : at->second;
}

}  // namespace

Overview::Overview(const Streams& streams, bool active_alone) {
    for (const Streams::Flows::Entry& entry : streams.flows().entries()) {
        const Flow& flow = entry.value;
        if (flow.is_active() || !active_alone) {
            sources_[flow.number()];
            pids_[flow.number()];
            members_[{flow.dest(), flow.vlans()}] = 0;
        }
    }
    for (const RtpSources::Entry& entry : streams.sources().entries()) {
        if (const auto at = sources_.find(static_cast<std::uint32_t>(entry.key[0] >> 32U));
            at != sources_.end()) {
            at->second.push_back({static_cast<std::uint32_t>(entry.key[0]), &entry.value});
        }
    }
    for (const Pids::Entry& entry : streams.pids().entries()) {
        if (const auto at = pids_.find(static_cast<std::uint32_t>(entry.key[0] >> 16U));
            at != pids_.end()) {
            at->second.push_back({static_cast<std::uint16_t>(entry.key[0]), &entry.value});
        }
    }
    for (auto& [number, pids] : pids_) {
        std::ranges::sort(pids, {}, &PidOf::pid);
    }
    for (const Members::Map::Entry& entry : streams.members().map().entries()) {
        const Member& member = entry.value;
        if (const auto at = members_.find({member.group, member.vlans}); at != members_.end()) {
            at->second += member.is_in ? 1U : 0U;
        }
    }
}

const std::vector<Overview::Rtp>& Overview::sources_of(const Flow& flow) const {
    return at_or_none(sources_, flow.number());
}

const std::vector<Overview::PidOf>& Overview::pids_of(const Flow& flow) const {
    return at_or_none(pids_, flow.number());
}

std::size_t Overview::members_of(const Flow& flow) const {
    const auto at = members_.find({flow.dest(), flow.vlans()});
    return at == members_.end() ? 0 : at->second;
}

Overview::RtpSum Overview::rtp_sum(const Flow& flow) const {
    RtpSum sum;
    for (const Rtp& rtp : sources_of(flow)) {
        sum.lost += rtp.source->lost();
        sum.disordered += rtp.source->disordered();
        sum.duplicates += rtp.source->duplicates();
        sum.jitter_us = std::max(sum.jitter_us, rtp.source->jitter_us());
    }
    return sum;
}

}  // namespace capture
