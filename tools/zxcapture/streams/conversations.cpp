#include "streams/conversations.hpp"

#include <algorithm>

#include "streams/cells.hpp"
#include "streams/json_members.hpp"

namespace capture {
namespace {

// The same for both ways.
Conversations::Map::Key key_of_connection(const Packet& packet) {
    const bool is_ordered =
        std::tie(packet.source, packet.source_port) <= std::tie(packet.dest, packet.dest_port);
    const EndsKey ends = is_ordered ? key_of(packet.source, packet.dest, vlans_of(packet),
                                             packet.source_port, packet.dest_port)
                                    : key_of(packet.dest, packet.source, vlans_of(packet),
                                             packet.dest_port, packet.source_port);
    Conversations::Map::Key key{};
    std::ranges::copy(ends, key.begin());
    return key;
}

// Of both ways, sorted by their sum: to the server, and to the client.
Cell counts(std::uint64_t to_server, std::uint64_t to_client) {
    const Cell one = count(to_server);
    const Cell other = count(to_client);
    return {one.text + "/" + other.text, one.number + other.number};
}

// Sorted by the longer one.
Cell durations(const Connection& connection, double (*value)(const Gaps&)) {
    const auto cell = [value](const Way& way) {
        return duration_if(way.round_trips.count() != 0, value(way.round_trips));
    };
    const Cell one = cell(connection.to_server());
    const Cell other = cell(connection.to_client());
    return {one.text + "/" + other.text, std::max(one.number, other.number)};
}

std::string end_of(const Connection::End& end) {
    return end_of(end.address, end.port);
}

std::vector<Cell> row_of(const Connection& connection, bool is_summary) {
    const Way& up = connection.to_server();
    const Way& down = connection.to_client();
    const double up_rate = is_summary ? connection.mean_bits_per_s(up) : up.bits_per_s;
    const double down_rate = is_summary ? connection.mean_bits_per_s(down) : down.bits_per_s;
    const auto handshake = connection.handshake_us();
    return {
        text(end_of(connection.client())),
        text(end_of(connection.server())),
        text(text_of(connection.vlans())),
        text(connection.state()),
        {megabits(up_rate).text + "/" + megabits(down_rate).text, up_rate + down_rate},
        counts(up.bytes, down.bytes),
        counts(up.frames, down.frames),
        counts(up.retransmissions, down.retransmissions),
        counts(up.out_of_order, down.out_of_order),
        counts(up.resets, down.resets),
        counts(up.zero_windows, down.zero_windows),
        duration_if(handshake.has_value(), static_cast<double>(handshake.value_or(0))),
        durations(connection,
                  [](const Gaps& gaps) { return static_cast<double>(gaps.least_us()); }),
        durations(connection, [](const Gaps& gaps) { return gaps.mean_us(); }),
        durations(connection, [](const Gaps& gaps) { return static_cast<double>(gaps.most_us()); }),
        time_of_day(connection.start_us()),
        duration_if(true, static_cast<double>(connection.duration_us()))};
}

void put_end(cJSON* object, const char* name, const Connection::End& end) {
    put(object, name, text_of(end.address));
    put(object, (std::string(name) + "_port").c_str(), std::uint64_t{end.port});
}

void put_way(cJSON* parent, const char* name, const Connection& connection, const Way& way) {
    cJSON* const object = cJSON_AddObjectToObject(parent, name);
    put(object, "frames", way.frames);
    put(object, "bytes", way.bytes);
    put(object, "payload_bytes", way.payload_bytes);
    put(object, "bits_per_s", connection.mean_bits_per_s(way));
    put(object, "retransmissions", way.retransmissions);
    put(object, "out_of_order", way.out_of_order);
    put(object, "resets", way.resets);
    put(object, "zero_windows", way.zero_windows);
    if (const Gaps& trips = way.round_trips; trips.count() != 0) {
        put(object, "round_trips", trips.count());
        put(object, "round_trip_least_us", trips.least_us());
        put(object, "round_trip_mean_us", trips.mean_us());
        put(object, "round_trip_most_us", trips.most_us());
    }
}

void put_connection(cJSON* array, const Connection& connection) {
    cJSON* const object = add_object(array);
    put_end(object, "client", connection.client());
    put_end(object, "server", connection.server());
    put_vlans(object, connection.vlans());
    put(object, "state", std::string(connection.state()));
    put(object, "start_us", connection.start_us());
    put(object, "duration_us", connection.duration_us());
    if (const auto handshake = connection.handshake_us()) {
        put(object, "handshake_us", *handshake);
    }
    put_way(object, "to_server", connection, connection.to_server());
    put_way(object, "to_client", connection, connection.to_client());
}

}  // namespace

void Conversations::add(const Frame& frame, const Packet& packet, std::int64_t now_us) {
    now_us_ = now_us;
    const std::optional<Tcp> tcp = read_tcp(frame, packet);
    if (!tcp) {
        return;
    }
    Map::Key key = key_of_connection(packet);
    Map::Entry* entry = connections_.find(key);
    if (entry == nullptr) {
        entry = &connections_.make(key);
        entry->value = Connection(packet, *tcp, now_us);
    } else if (entry->value.is_begun_again_by(packet, *tcp)) {
        key.back() = ++begun_again_;
        connections_.make(key).value =
            std::exchange(entry->value, Connection(packet, *tcp, now_us));
    }
    entry->value.add(frame, packet, *tcp, now_us);
}

void Conversations::end_second(std::int64_t now_us, double seconds) {
    now_us_ = now_us;
    for (Map::Entry& entry : connections_.entries()) {
        entry.value.end_second(seconds);
    }
}

// The rates are those of the last second, and in the summary the mean.
std::vector<Sheet> Conversations::sheets(bool is_summary) const {
    Sheet sheet{"connections",
                {{"client", 'c', false},
                 {"server", 's', false},
                 {"VLAN", 'v', false},
                 {"state", 'e', false},
                 {"Mbit/s", 'b', true},
                 {"bytes", 'y', true},
                 {"frames", 'f', true},
                 {"sent again", 'r', true},
                 {"out of order", 'o', true},
                 {"resets", 'x', true},
                 {"zero windows", 'z', true},
                 {"handshake", 'h', true},
                 {"least ack", 'l', true},
                 {"mean ack", 'm', true},
                 {"longest ack", 'g', true},
                 {"start", 't', true},
                 {"duration", 'd', true}},
                {},
                5};
    for (const Map::Entry& entry : connections_.entries()) {
        sheet.rows.push_back(row_of(entry.value, is_summary));
    }
    std::vector<Sheet> sheets;
    sheets.push_back(std::move(sheet));  // an initializer list would copy it
    return sheets;
}

std::string Conversations::headline(bool) const {
    std::uint64_t bytes = 0;
    std::uint64_t again = 0;
    std::uint64_t resets = 0;
    for (const Map::Entry& entry : connections_.entries()) {
        const Way& up = entry.value.to_server();
        const Way& down = entry.value.to_client();
        bytes += up.bytes + down.bytes;
        again += up.retransmissions + down.retransmissions;
        resets += up.resets + down.resets;
    }
    std::string line = time_of_day(now_us_).text + "  " +
                       amount(connections_.entries().size(), " connections, ") +
                       amount(bytes, " bytes, ") + amount(again, " segments sent again, ") +
                       amount(resets, " resets");
    if (connections_.given_up() != 0) {
        line += ", " + amount(connections_.given_up(), " older connections given up");
    }
    return line;
}

tools::Json Conversations::json(bool is_summary) const {
    tools::Json array(cJSON_CreateArray());
    if (!is_summary) {
        return array;
    }
    for (const Map::Entry& entry : connections_.entries()) {
        put_connection(array.get(), entry.value);
    }
    if (connections_.given_up() != 0) {
        put(add_object(array.get()), "given_up", connections_.given_up());
    }
    return array;
}

}  // namespace capture
