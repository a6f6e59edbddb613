// What can be said of a transport stream from its packets (ISO/IEC 13818-1).
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "streams/bounded_map.hpp"

namespace capture {

struct Pid {
    std::uint64_t packets = 0;
    std::uint64_t continuity_errors = 0;
    std::uint64_t duplicates = 0;
    std::uint64_t scrambled = 0;
    std::uint32_t stretch = 0;  // of the stream, in which the counter came; 0: in none
    std::uint8_t counter = 0;
    bool is_repeated = false;  // the last packet was a duplicate
};

// The PIDs of all streams: the number of the stream and the PID are the key.
using Pids = BoundedMap<1, Pid>;
[[nodiscard]] inline Pids::Key pid_key(std::uint32_t stream, std::uint16_t pid) {
    return {std::uint64_t{stream} << 16U | pid};
}

struct Programme {
    static constexpr std::size_t kMostParts = 16;
    struct Part {
        std::uint16_t pid = 0;
        std::uint8_t type = 0;  // the stream type
    };
    std::uint16_t number = 0;
    std::uint16_t map_pid = 0;
    std::uint16_t clock_pid = 0;
    bool is_known = false;  // the map (PMT) has come
    std::size_t part_count = 0;
    std::array<Part, kMostParts> parts{};
};

class TransportStream {
public:
    static constexpr std::size_t kPacketSize = 188;
    static constexpr std::size_t kMostProgrammes = 32;
    static constexpr std::size_t kMostSections = 8;  // that come at the same time

    // `captured` is the beginning of a payload of `size` bytes. A payload that is no transport
    // stream is a loss of synchronism once packets have come. `number` tells the streams apart.
    void add(std::span<const std::uint8_t> captured, std::size_t size, std::uint32_t number,
             Pids& pids);

    // One packet alone may be anything.
    [[nodiscard]] bool is_sure() const { return packets_ > 1; }

    [[nodiscard]] std::uint64_t packets() const { return packets_; }
    [[nodiscard]] std::uint64_t null_packets() const { return null_packets_; }
    [[nodiscard]] std::uint64_t continuity_errors() const { return continuity_errors_; }
    [[nodiscard]] std::uint64_t duplicates() const { return duplicates_; }
    [[nodiscard]] std::uint64_t sync_losses() const { return sync_losses_; }
    // Packets that the sender itself has marked as damaged.
    [[nodiscard]] std::uint64_t transport_errors() const { return transport_errors_; }
    // Payloads that were not captured whole. Nothing is said of the continuity after them.
    [[nodiscard]] std::uint64_t cut_payloads() const { return cut_payloads_; }

    [[nodiscard]] std::span<const Programme> programmes() const {
        return tables_ == nullptr ? std::span<const Programme>()
                                  : std::span(tables_->programmes).first(tables_->programme_count);
    }

private:
    // A section of a table, as far as it has come.
    struct Section {
        static constexpr std::size_t kLargest = 1024;
        std::uint16_t pid = 0;
        std::size_t size = 0;  // 0: none has begun
        std::array<std::uint8_t, kLargest> bytes{};
    };
    struct Tables {
        std::size_t programme_count = 0;
        std::array<Programme, kMostProgrammes> programmes{};
        std::bitset<8192> map_pids{};
        std::vector<Section> sections;  // each of another PID, and those that wait for one
        std::size_t next_section = 0;   // is given up when there are too many
        std::uint8_t version = 0xFF;    // of the PAT
    };
    using Bytes = std::span<const std::uint8_t>;

    void add_packet(Bytes packet, std::uint32_t number, Pids& pids);
    void check_continuity(Bytes packet, Pid& pid);
    void add_table_part(Bytes packet, std::uint16_t pid);
    Section& begin_section(std::uint16_t pid);
    Section* section_of(std::uint16_t pid);
    void continue_section(Section& section, Bytes bytes);
    void take_section(std::uint16_t pid, Bytes section);
    void take_associations(Bytes section);
    void take_map(std::uint16_t pid, Bytes section);

    std::uint64_t packets_ = 0;
    std::uint64_t null_packets_ = 0;
    std::uint64_t continuity_errors_ = 0;
    std::uint64_t duplicates_ = 0;
    std::uint64_t sync_losses_ = 0;
    std::uint64_t transport_errors_ = 0;
    std::uint64_t cut_payloads_ = 0;
    std::uint32_t stretch_ = 1;       // one ends where something was not captured
    std::unique_ptr<Tables> tables_;  // NULL: no PAT has come
};

// "H.264", or the number as hexadecimal digits.
[[nodiscard]] std::string stream_type_name(std::uint8_t type);

}  // namespace capture
