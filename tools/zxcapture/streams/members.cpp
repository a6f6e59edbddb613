#include "streams/members.hpp"

namespace capture {
namespace {

template <typename Take>
void for_each_source(const GroupRecord& record, const Take& take) {
    const std::size_t size = record.group.size();
    for (std::size_t at = 0; at + size <= record.sources.size(); at += size) {
        take(address_at(&record.sources[at], record.group.is_ipv6));
    }
}

}  // namespace

// RFC 3376, section 5.1, and RFC 3810, section 6.1, as seen from outside.
void Member::follow(const GroupRecord& record) {
    const bool changes = record.act == GroupAct::allow || record.act == GroupAct::block;
    if (!changes) {
        taken.clear();
        takes_others = false;
        takes_all = record.joins() && record.act != GroupAct::is_include &&
                    record.act != GroupAct::to_include;
    }
    if (!takes_all) {
        record.act == GroupAct::block ? block(record) : allow(record);
    }
    is_in = takes_all || takes_others || !taken.empty();
}

void Member::allow(const GroupRecord& record) {
    takes_others |= record.sources.size() < record.source_count * record.group.size();
    for_each_source(record, [&](const Address& source) {
        if (taken.size() < kMostSources) {
            taken.insert(source);
        } else {
            takes_others |= !taken.contains(source);
        }
    });
}

void Member::block(const GroupRecord& record) {
    for_each_source(record, [&](const Address& source) { taken.erase(source); });
}

void Members::add(const Frame& frame, const Packet& packet, std::int64_t now_us) {
    std::optional<Groups> groups = read_groups(frame, packet);
    if (!groups) {
        return;
    }
    for (auto record = groups->next(); record; record = groups->next()) {
        if (record->act != GroupAct::query) {
            take(*record, packet, groups->version(), now_us);
        }
    }
}

void Members::take(const GroupRecord& record, const Packet& packet, unsigned version,
                   std::int64_t now_us) {
    const Vlans vlans = vlans_of(packet);
    const EndsKey key = key_of(record.group, packet.source, vlans, 0, 0);
    Map::Entry* entry = map_.find(key);
    if (entry == nullptr) {
        if (!record.joins() && !record.leaves()) {
            return;  // nothing is known of what it still takes
        }
        entry = &map_.make(key);
        entry->value.group = record.group;
        entry->value.host = packet.source;
        entry->value.vlans = vlans;
    }
    Member& member = entry->value;
    const bool was_in = member.is_in;
    member.follow(record);
    if (member.reports == 0 || member.is_in != was_in) {
        member.since_us = now_us;
    }
    member.version = version;
    member.last_us = now_us;
    member.sources = record.source_count;
    ++member.reports;
}

}  // namespace capture
