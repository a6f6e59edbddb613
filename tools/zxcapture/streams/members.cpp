#include "streams/members.hpp"

namespace capture {

void Members::add(const Frame& frame, const Packet& packet, std::int64_t now_us) {
    std::optional<Groups> groups = read_groups(frame, packet);
    if (!groups) {
        return;
    }
    for (auto record = groups->next(); record; record = groups->next()) {
        if (record->joins() || record->leaves()) {
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
        entry = &map_.make(key);
        entry->value.group = record.group;
        entry->value.host = packet.source;
        entry->value.vlans = vlans;
    }
    Member& member = entry->value;
    if (member.reports == 0 || member.is_in != record.joins()) {
        member.since_us = now_us;
    }
    member.is_in = record.joins();
    member.version = version;
    member.last_us = now_us;
    member.sources = record.source_count;
    ++member.reports;
}

}  // namespace capture
