// The tables of all flows of UDP, of the transport streams and RTP in them, and of the members of
// multicast groups.
#pragma once

#include "streams/members.hpp"
#include "streams/tables.hpp"

namespace capture {

class Streams final : public Tables {
public:
    // How many there can be. The one that was idle for the longest time is given up.
    struct Limits {
        std::size_t flows = 4096;
        std::size_t sources = 4096;  // of RTP
        std::size_t pids = 16384;
        std::size_t members = 4096;
    };
    using Flows = BoundedMap<std::tuple_size_v<EndsKey>, Flow>;

    explicit Streams(const RtpClocks& clocks) : Streams(clocks, Limits{}) {}
    Streams(const RtpClocks& clocks, const Limits& limits)
        : clocks_(clocks),
          flows_(limits.flows),
          sources_(limits.sources),
          pids_(limits.pids),
          members_(limits.members) {}

    void add(const Frame& frame, const Packet& packet, std::int64_t now_us) override;
    void end_second(std::int64_t now_us, double seconds) override;
    [[nodiscard]] std::vector<Sheet> sheets(bool is_summary) const override;
    [[nodiscard]] std::string headline(bool is_summary) const override;
    [[nodiscard]] tools::Json json(bool is_summary) const override;

    [[nodiscard]] const Flows& flows() const { return flows_; }
    [[nodiscard]] const RtpSources& sources() const { return sources_; }
    [[nodiscard]] const Pids& pids() const { return pids_; }
    [[nodiscard]] const Members& members() const { return members_; }

    // Of flows that were given up.
    [[nodiscard]] std::uint64_t forgotten_packets() const { return forgotten_packets_; }

    // They have no ports, so they are in no flow.
    [[nodiscard]] std::uint64_t later_fragments() const { return later_fragments_; }

private:
    const RtpClocks clocks_;
    Flows flows_;
    RtpSources sources_;
    Pids pids_;
    Members members_;
    std::uint32_t next_number_ = 1;
    std::uint64_t forgotten_packets_ = 0;
    std::uint64_t later_fragments_ = 0;
    std::int64_t now_us_ = 0;
};

}  // namespace capture
