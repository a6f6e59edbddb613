#include "packet/groups.hpp"

#include <algorithm>
#include <utility>

#include "common/big_endian.hpp"

namespace capture {
namespace {

// The messages that are about one group.
struct Message {
    bool is_ipv6;
    std::uint8_t type;
    GroupAct act;
    unsigned version;
};
constexpr Message kMessages[] = {
    {false, 0x11, GroupAct::query, 2}, {false, 0x12, GroupAct::join, 1},
    {false, 0x16, GroupAct::join, 2},  {false, 0x17, GroupAct::leave, 2},
    {true, 130, GroupAct::query, 1},   {true, 131, GroupAct::join, 1},
    {true, 132, GroupAct::leave, 1}};

// The reports with records.
constexpr std::uint8_t kIgmp3Report = 0x22;
constexpr std::uint8_t kMld2Report = 143;

constexpr std::size_t kIgmpSize = 8;  // up to the group
constexpr std::size_t kMldSize = 24;
constexpr std::size_t kReportSize = 8;   // before the records
constexpr std::size_t kSourcesSize = 4;  // what a query of IGMPv3 and MLDv2 has before its sources

// The acts of a record, whose types count from 1.
constexpr GroupAct kRecordActs[] = {GroupAct::is_include, GroupAct::is_exclude,
                                    GroupAct::to_include, GroupAct::to_exclude,
                                    GroupAct::allow,      GroupAct::block};

}  // namespace

Address Groups::address_at(std::size_t at) const {
    Address address;
    address.is_ipv6 = is_ipv6_;
    std::copy_n(&rest_[at], address_size(), address.bytes.begin());
    return address;
}

// A query of IGMPv3 and MLDv2 goes on with sources after the `fixed` part. `size` is of the
// message, captured or not.
void Groups::extend_query(std::size_t fixed, std::size_t size) {
    if (size < fixed + kSourcesSize) {
        return;
    }
    version_ = is_ipv6_ ? 2 : 3;
    if (rest_.size() < fixed + kSourcesSize) {
        is_cut_ = true;
        return;
    }
    only_->source_count = tools::load_be16(&rest_[fixed + 2]);
    const std::size_t sources = only_->source_count * address_size();
    const std::span<const std::uint8_t> there = rest_.subspan(fixed + kSourcesSize);
    only_->sources = there.first(std::min(sources, there.size()));
    is_cut_ = there.size() < sources;
}

// False: it is no message about a group.
bool Groups::begin(std::size_t size) {
    if (rest_.size() < kReportSize) {
        return false;
    }
    if (rest_[0] == (is_ipv6_ ? kMld2Report : kIgmp3Report)) {
        version_ = is_ipv6_ ? 2 : 3;
        left_ = tools::load_be16(&rest_[6]);
        rest_ = rest_.subspan(kReportSize);
        return true;
    }
    const std::size_t fixed = is_ipv6_ ? kMldSize : kIgmpSize;
    const auto* const message = std::ranges::find_if(
        kMessages, [&](const Message& m) { return m.is_ipv6 == is_ipv6_ && m.type == rest_[0]; });
    if (message == std::end(kMessages) || rest_.size() < fixed) {
        return false;
    }
    only_ = GroupRecord{.act = message->act, .group = address_at(fixed - address_size())};
    version_ = message->version;
    if (message->act == GroupAct::query) {
        if (!is_ipv6_ && rest_[1] == 0) {
            version_ = 1;  // it has no time to respond
        }
        extend_query(fixed, size);
    }
    return true;
}

std::optional<GroupRecord> Groups::next() {
    if (only_) {
        return std::exchange(only_, std::nullopt);
    }
    while (left_ > 0) {
        --left_;
        const std::uint8_t type = rest_.empty() ? 0 : rest_[0];
        std::optional<GroupRecord> record = read_record();
        if (!record) {
            break;
        }
        if (type >= 1 && type <= std::size(kRecordActs)) {
            record->act = kRecordActs[type - 1];
            return record;
        }  // others must be ignored
    }
    return std::nullopt;
}

// The type, the words of data after the sources, the number of sources; the group; the sources.
std::optional<GroupRecord> Groups::read_record() {
    const std::size_t fixed = 4 + address_size();
    if (rest_.size() < fixed) {
        is_cut_ = true;
        left_ = 0;
        return std::nullopt;
    }
    GroupRecord record;
    record.group = address_at(4);
    record.source_count = tools::load_be16(&rest_[2]);
    const std::size_t sources = record.source_count * address_size();
    const std::size_t whole = fixed + sources + std::size_t{4} * rest_[1];
    record.sources = rest_.subspan(fixed, std::min(sources, rest_.size() - fixed));
    if (whole > rest_.size()) {
        is_cut_ = true;
        left_ = 0;
    }
    rest_ = rest_.subspan(std::min(whole, rest_.size()));
    return record;
}

std::optional<Groups> read_groups(const Frame& frame, const Packet& packet) {
    Groups groups;
    groups.is_ipv6_ = packet.transport == Transport::icmpv6;
    groups.rest_ = captured_transport(frame, packet);
    const bool may_be = packet.transport == Transport::igmp || groups.is_ipv6_;
    return may_be && groups.begin(packet.network_end - packet.transport_at) ? std::optional(groups)
                                                                            : std::nullopt;
}

std::string_view group_act_name(GroupAct act) {
    constexpr std::string_view kNames[] = {"query",      "join",    "leave",
                                           "include",    "exclude", "to include",
                                           "to exclude", "allow",   "block"};
    return kNames[static_cast<std::size_t>(act)];
}

}  // namespace capture
