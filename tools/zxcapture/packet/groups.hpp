// Multicast groups in messages of IGMP versions 1 to 3 (RFC 1112, 2236, 3376) and of MLD versions 1
// and 2 (RFC 2710, 3810).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "packet/packet.hpp"

namespace capture {

// What a message says of one group. The last six are the records of a report of IGMPv3 or MLDv2.
enum class GroupAct : std::uint8_t {
    query,       // a router asks who is in the group; in all groups if it is zero
    join,        // a report of IGMPv1, IGMPv2 or MLDv1: the sender is in the group
    leave,       // IGMPv2, MLDv1 (done)
    is_include,  // the sender takes the group from these sources
    is_exclude,  // from all sources but these
    to_include,
    to_exclude,
    allow,  // from these sources, too
    block,  // not from these any more
};

struct GroupRecord {
    GroupAct act = GroupAct::query;
    Address group;
    std::uint16_t source_count = 0;           // as the record says
    std::span<const std::uint8_t> sources{};  // their addresses, as far as they were captured

    // Whether the sender is in the group after this: from at least one source.
    [[nodiscard]] bool joins() const {
        return act == GroupAct::join || act == GroupAct::is_exclude ||
               act == GroupAct::to_exclude ||
               (source_count > 0 && (act == GroupAct::is_include || act == GroupAct::to_include ||
                                     act == GroupAct::allow));
    }
    [[nodiscard]] bool leaves() const {
        return act == GroupAct::leave ||
               (source_count == 0 && (act == GroupAct::is_include || act == GroupAct::to_include));
    }
};

// The groups of one message: `for (auto record = groups.next(); record; record = groups.next())`.
class Groups {
public:
    // Returns the next record, or nothing after the last.
    [[nodiscard]] std::optional<GroupRecord> next();

    // The version of IGMP or MLD.
    [[nodiscard]] unsigned version() const { return version_; }

    // Valid after the last record: one ends after the message, or after what was captured.
    [[nodiscard]] bool is_cut() const { return is_cut_; }

private:
    friend std::optional<Groups> read_groups(const Frame& frame, const Packet& packet);
    std::optional<GroupRecord> read_record();
    [[nodiscard]] Address address_at(std::size_t at) const;
    [[nodiscard]] std::size_t address_size() const { return is_ipv6_ ? 16 : 4; }
    bool begin(std::size_t size);
    void extend_query(std::size_t fixed, std::size_t size);

    std::span<const std::uint8_t> rest_;  // of the message
    std::optional<GroupRecord> only_;     // of all messages but a report with records
    unsigned left_ = 0;                   // records
    unsigned version_ = 0;
    bool is_ipv6_ = false;
    bool is_cut_ = false;
};

// Returns nothing if the packet is no such message, or its fixed header was not captured.
[[nodiscard]] std::optional<Groups> read_groups(const Frame& frame, const Packet& packet);

// "query", "join", "leave", "include", "exclude", "to include", "to exclude", "allow", "block".
[[nodiscard]] std::string_view group_act_name(GroupAct act);

}  // namespace capture
