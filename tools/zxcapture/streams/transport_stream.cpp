#include "streams/transport_stream.hpp"

#include <algorithm>
#include <cstdio>

#include "common/big_endian.hpp"
#include "zxcrc.h"

namespace capture {
namespace {

constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::size_t kHeaderSize = 4;
constexpr std::uint16_t kAssociationPid = 0;
constexpr std::uint16_t kNullPid = 0x1FFF;
constexpr std::uint8_t kAssociationTable = 0;
constexpr std::uint8_t kMapTable = 2;
constexpr std::uint8_t kStuffing = 0xFF;
constexpr std::size_t kSectionHeader = 3;
constexpr std::size_t kSectionFixed = 8;  // up to what a table has of its own
constexpr std::size_t kCrcSize = 4;

struct TypeName {
    std::uint8_t type;
    const char* name;
};
constexpr TypeName kTypeNames[] = {
    {0x01, "MPEG-1 video"}, {0x02, "MPEG-2 video"}, {0x03, "MPEG-1 audio"}, {0x04, "MPEG-2 audio"},
    {0x05, "sections"},     {0x06, "private"},      {0x0B, "DSM-CC"},       {0x0F, "AAC"},
    {0x10, "MPEG-4 video"}, {0x11, "AAC LATM"},     {0x15, "metadata"},     {0x1B, "H.264"},
    {0x20, "H.264 MVC"},    {0x21, "JPEG 2000"},    {0x24, "H.265"},        {0x33, "H.266"},
    {0x81, "AC-3"},         {0x86, "SCTE-35"},      {0x87, "E-AC-3"}};

std::uint16_t pid_at(const std::uint8_t* at) {
    return tools::load_be16(at) & 0x1FFFU;
}

bool has_payload(std::span<const std::uint8_t> packet) {
    return (packet[3] & 0x10U) != 0;
}

bool is_discontinuous(std::span<const std::uint8_t> packet) {
    return (packet[3] & 0x20U) != 0 && packet[4] != 0 && (packet[5] & 0x80U) != 0;
}

// What follows the header and the adaptation field.
std::span<const std::uint8_t> payload_of(std::span<const std::uint8_t> packet) {
    const std::size_t field = (packet[3] & 0x20U) != 0 ? 1 + std::size_t{packet[4]} : 0;
    return has_payload(packet) ? packet.subspan(std::min(kHeaderSize + field, packet.size()))
                               : std::span<const std::uint8_t>();
}

}  // namespace

void TransportStream::add(Bytes captured, std::size_t size, std::uint32_t number, Pids& pids) {
    const bool is_good = size != 0 && size % kPacketSize == 0 && !captured.empty();
    if (!is_good && packets_ == 0) {
        return;
    }
    bool is_in_sync = is_good;
    for (std::size_t at = 0; at + kPacketSize <= captured.size(); at += kPacketSize) {
        if (captured[at] == kSyncByte) {
            add_packet(captured.subspan(at, kPacketSize), number, pids);
        } else if (packets_ == 0) {
            return;
        } else {
            is_in_sync = false;
        }
    }
    sync_losses_ += is_in_sync ? 0U : 1U;
    if (captured.size() < size && packets_ != 0) {
        ++cut_payloads_;
        ++stretch_;
    }
}

void TransportStream::add_packet(Bytes packet, std::uint32_t number, Pids& pids) {
    ++packets_;
    if ((packet[1] & 0x80U) != 0) {
        ++transport_errors_;
        return;
    }
    const std::uint16_t pid = pid_at(&packet[1]);
    if (pid == kNullPid) {
        ++null_packets_;
        return;
    }
    const Pids::Key key = pid_key(number, pid);
    Pids::Entry* entry = pids.find(key);
    if (entry == nullptr) {
        entry = &pids.make(key);
    }
    ++entry->value.packets;
    entry->value.scrambled += (packet[3] & 0xC0U) != 0 ? 1U : 0U;
    check_continuity(packet, entry->value);
    const bool has_table =
        pid == kAssociationPid || (tables_ != nullptr && tables_->map_pids.test(pid));
    if (has_table && !entry->value.is_repeated) {
        add_table_part(packet, pid);
    }
}

// A packet may be sent twice. The counter does not count packets without a payload.
void TransportStream::check_continuity(Bytes packet, Pid& pid) {
    const std::uint8_t counter = packet[3] & 0x0FU;
    const bool goes_on = counter == ((pid.counter + 1U) & 0x0FU);
    const bool stays = counter == pid.counter;
    const bool is_known = pid.stretch == stretch_ && !is_discontinuous(packet);
    const bool is_duplicate = is_known && stays && has_payload(packet) && !pid.is_repeated;
    if (is_duplicate) {
        ++pid.duplicates;
        ++duplicates_;
    } else if (is_known && !(has_payload(packet) ? goes_on : stays)) {
        ++pid.continuity_errors;
        ++continuity_errors_;
    }
    pid.is_repeated = is_duplicate || (pid.is_repeated && !has_payload(packet));
    pid.counter = counter;
    pid.stretch = stretch_;
}

void TransportStream::add_table_part(Bytes packet, std::uint16_t pid) {
    Bytes payload = payload_of(packet);
    if (payload.empty()) {
        return;
    }
    if (tables_ == nullptr) {
        tables_ = std::make_unique<Tables>();
    }
    Section* const begun = section_of(pid);
    const bool begins = (packet[1] & 0x40U) != 0;
    // The pointer tells where a section begins; one that has begun earlier ends there.
    const std::size_t before = begins ? payload[0] : payload.size();
    payload = payload.subspan(begins ? 1 : 0);
    if (before > payload.size()) {
        return;
    }
    if (begun != nullptr) {
        continue_section(*begun, payload.first(before));
        begun->size = begins ? 0 : begun->size;
    }
    if (before < payload.size() && payload[before] != kStuffing) {
        continue_section(begin_section(pid), payload.subspan(before));
    }
}

TransportStream::Section* TransportStream::section_of(std::uint16_t pid) {
    const auto its = std::ranges::find_if(tables_->sections, [&](const Section& section) {
        return section.pid == pid && section.size != 0;
    });
    return its == tables_->sections.end() ? nullptr : &*its;
}

// The PID has none.
TransportStream::Section& TransportStream::begin_section(std::uint16_t pid) {
    std::vector<Section>& sections = tables_->sections;
    auto its = std::ranges::find(sections, 0U, &Section::size);
    if (its == sections.end() && sections.size() < kMostSections) {
        its = sections.emplace(its);
    } else if (its == sections.end()) {
        its = sections.begin() + static_cast<long>(tables_->next_section++ % kMostSections);
        its->size = 0;
    }
    its->pid = pid;
    return *its;
}

void TransportStream::continue_section(Section& section, Bytes bytes) {
    const std::size_t size = std::min(bytes.size(), Section::kLargest - section.size);
    std::copy_n(bytes.begin(), size, section.bytes.begin() + static_cast<long>(section.size));
    section.size += size;
    while (section.size >= kSectionHeader && section.bytes[0] != kStuffing) {
        const std::size_t whole = kSectionHeader + (tools::load_be16(&section.bytes[1]) & 0x0FFFU);
        if (whole > Section::kLargest) {
            section.size = 0;
        }
        if (whole > section.size) {
            return;
        }
        take_section(section.pid, Bytes(section.bytes).first(whole));
        std::copy(section.bytes.begin() + static_cast<long>(whole),
                  section.bytes.begin() + static_cast<long>(section.size), section.bytes.begin());
        section.size -= whole;
    }
    section.size = section.size >= kSectionHeader ? 0 : section.size;  // what is left is stuffing
}

// Damaged sections and those that are not in force yet say nothing.
void TransportStream::take_section(std::uint16_t pid, Bytes section) {
    const bool is_whole =
        section.size() >= kSectionFixed + kCrcSize &&
        zxcrc_api_CRC32(section.data(), static_cast<std::uint32_t>(section.size())) == 0;
    if (!is_whole || (section[5] & 1U) == 0) {
        return;
    }
    if (pid == kAssociationPid && section[0] == kAssociationTable) {
        take_associations(section);
    } else if (section[0] == kMapTable) {
        take_map(pid, section);
    }
}

void TransportStream::take_associations(Bytes section) {
    Tables& tables = *tables_;
    const std::uint8_t version = section[5] & 0x3EU;
    if (version != tables.version) {
        tables.version = version;
        tables.programme_count = 0;
        tables.map_pids.reset();
    }
    for (std::size_t at = kSectionFixed; at + 4 + kCrcSize <= section.size(); at += 4) {
        const std::uint16_t number = tools::load_be16(&section[at]);
        const std::uint16_t pid = pid_at(&section[at + 2]);
        const auto known = std::span(tables.programmes).first(tables.programme_count);
        const auto its = std::ranges::find(known, number, &Programme::number);
        const bool is_new = its == known.end();
        if (number == 0 || (is_new ? known.size() == kMostProgrammes : its->map_pid == pid)) {
            continue;
        }
        // A map that moves is another one.
        Programme& programme = is_new ? tables.programmes[tables.programme_count++] : *its;
        programme = Programme{};
        programme.number = number;
        programme.map_pid = pid;
        tables.map_pids.set(pid);
    }
}

void TransportStream::take_map(std::uint16_t pid, Bytes section) {
    constexpr std::size_t kFixed = 12;
    constexpr std::size_t kPartFixed = 5;
    const std::uint16_t number = tools::load_be16(&section[3]);
    const auto all = std::span(tables_->programmes).first(tables_->programme_count);
    const auto found = std::ranges::find_if(
        all, [&](const Programme& its) { return its.number == number && its.map_pid == pid; });
    if (found == all.end() || section.size() < kFixed + kCrcSize) {
        return;
    }
    found->is_known = true;
    found->clock_pid = pid_at(&section[8]);
    found->part_count = 0;
    const std::size_t end = section.size() - kCrcSize;
    std::size_t at = kFixed + (tools::load_be16(&section[10]) & 0x0FFFU);
    while (at + kPartFixed <= end && found->part_count < Programme::kMostParts) {
        found->parts[found->part_count++] = {pid_at(&section[at + 1]), section[at]};
        at += kPartFixed + (tools::load_be16(&section[at + 3]) & 0x0FFFU);
    }
}

std::string stream_type_name(std::uint8_t type) {
    const auto* const at = std::ranges::find(kTypeNames, type, &TypeName::type);
    if (at != std::end(kTypeNames)) {
        return at->name;
    }
    char number[sizeof "0x00"];
    std::snprintf(number, sizeof number, "0x%02x", type);
    return number;
}

}  // namespace capture
