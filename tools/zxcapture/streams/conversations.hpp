// The table of all connections of TCP.
#pragma once

#include "streams/bounded_map.hpp"
#include "streams/connection.hpp"
#include "streams/tables.hpp"

namespace capture {

class Conversations final : public Tables {
public:
    static constexpr std::size_t kMost = 8192;

    // The ends of a connection, and the number of one whose ports are in use again.
    using Map = BoundedMap<std::tuple_size_v<EndsKey> + 1, Connection>;

    void add(const Frame& frame, const Packet& packet, std::int64_t now_us) override;
    void end_second(std::int64_t now_us, double seconds) override;
    [[nodiscard]] std::vector<Sheet> sheets(bool is_summary) const override;
    [[nodiscard]] std::string headline(bool is_summary) const override;

    // An array: at the end an object for each connection, before nothing.
    [[nodiscard]] tools::Json json(bool is_summary) const override;

    [[nodiscard]] const Map& connections() const { return connections_; }

private:
    Map connections_{kMost};
    std::uint64_t begun_again_ = 0;
    std::int64_t now_us_ = 0;
};

}  // namespace capture
