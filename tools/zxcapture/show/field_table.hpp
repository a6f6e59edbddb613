// The fields of a frame, with the names that tshark gives them.
//
// The fields are those of the outermost headers: a packet within a tunnel, or within an error
// message of ICMP, has no fields.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "packet/groups.hpp"
#include "packet/icmp.hpp"
#include "packet/packet.hpp"
#include "packet/rtp.hpp"
#include "packet/tcp.hpp"

namespace capture {

// What must be in a frame for a field to have a value.
enum class Layer : std::uint8_t {
    frame,
    ethernet,
    arp,
    ipv4,
    ipv6,
    tcp,
    udp,
    icmp,
    icmpv6,
    igmp,
    rtp,
};

// A frame with the headers that it has. What a layer does not have is empty.
class Headers {
public:
    Headers(const Frame& of_frame, const Packet& of_packet, std::uint64_t of_number);

    [[nodiscard]] bool has(Layer layer) const { return (layers_ >> bit(layer) & 1U) != 0; }

    // The header of the network or of the transport.
    [[nodiscard]] const std::uint8_t* network() const {
        return frame.bytes.data() + packet.network_at;
    }
    [[nodiscard]] const std::uint8_t* transport() const {
        return frame.bytes.data() + packet.transport_at;
    }

    const Frame& frame;
    const Packet& packet;
    const std::uint64_t number;  // of the frame
    Tcp tcp;
    TcpOptions options;
    Icmp icmp;
    Rtp rtp;
    std::vector<GroupRecord> groups;
    unsigned groups_version = 0;  // of IGMP or MLD; 0: the message has no groups

private:
    static unsigned bit(Layer layer) { return static_cast<unsigned>(layer); }
    void set(Layer layer) { layers_ |= 1U << bit(layer); }
    void read_transport();
    void read_groups_of_message();

    std::uint32_t layers_ = 0;
};

// How a value is written. In JSON, numbers are decimal, and flags are true or false.
enum class Notation : std::uint8_t {
    decimal,
    hex2,  // so many digits
    hex4,
    hex6,
    hex8,
    flag,
    flaw,
    time,
    mac,
    ipv4,
    ipv6,
};

struct Value {
    std::uint64_t number = 0;  // of a time: its seconds
    std::int64_t nanos = 0;
    std::array<std::uint8_t, 16> bytes{};  // of an address
};

// A field in this frame has one value, or none; one that is a list has any number of them.
using Values = std::vector<Value>;

struct Field {
    std::string_view name;
    Layer layer;
    Notation notation;
    bool is_list;
    std::string_view meaning;
    // Called only for a frame that has the layer. Adds the values.
    void (*read)(const Headers& headers, Values& values);
};

// All fields, ordered by the layers.
[[nodiscard]] std::span<const Field> all_fields();

// NULL: there is no such field.
[[nodiscard]] const Field* find_field(std::string_view name);

// The names that are nearest to one that is unknown, the nearest first.
[[nodiscard]] std::vector<std::string_view> fields_near(std::string_view name);

// A line for each field: its name and what it means.
[[nodiscard]] std::string field_list();

// Adds the value as tshark writes it. It is ASCII and needs no escapes.
void append_value(std::string& text, Notation notation, const Value& value);

}  // namespace capture
