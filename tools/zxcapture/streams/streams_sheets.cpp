// The tables of streams for people.
#include <algorithm>

#include "streams/cells.hpp"
#include "streams/overview.hpp"

namespace capture {
namespace {

std::string dest_of(const Flow& flow) {
    return end_of(flow.dest(), flow.dest_port());
}

// The rate is that of the last second, and in the summary the mean.
Sheet streams_sheet(const Streams& streams, const Overview& overview, bool is_summary) {
    Sheet sheet{"streams",
                {{"destination", 'd', false},
                 {"source", 's', false},
                 {"VLAN", 'v', false},
                 {"kind", 'k', false},
                 {"Mbit/s", 'b', true},
                 {"lost", 'l', true},
                 {"late", 't', true},
                 {"CC errors", 'c', true},
                 {"jitter", 'j', true},
                 {"longest gap", 'g', true},
                 {"packets", 'p', true},
                 {"members", 'm', true}},
                {},
                4};
    for (const Streams::Flows::Entry& entry : streams.flows().entries()) {
        const Flow& flow = entry.value;
        const Overview::RtpSum sum = overview.rtp_sum(flow);
        const TransportStream& stream = flow.transport_stream();
        const std::size_t members = overview.members_of(flow);
        sheet.rows.push_back(
            {text(dest_of(flow)), text(end_of(flow.source(), flow.source_port())),
             text(text_of(flow.vlans())), text(flow.kind()),
             megabits(is_summary ? flow.mean_bits_per_s() : flow.bits_per_s()),
             count_if(flow.is_rtp(), sum.lost), count_if(flow.is_rtp(), sum.disordered),
             count_if(stream.is_sure(), stream.continuity_errors() + stream.sync_losses()),
             duration_if(flow.is_rtp(), sum.jitter_us),
             duration_if(flow.gaps().count() != 0, static_cast<double>(flow.gaps().most_us())),
             count(flow.packets()), count_if(members != 0, members)});
    }
    return sheet;
}

Sheet members_sheet(const Members& members) {
    Sheet sheet{"members",
                {{"group", 'g', false},
                 {"host", 'h', false},
                 {"VLAN", 'v', false},
                 {"state", 's', false},
                 {"since", 't', true},
                 {"last report", 'l', true},
                 {"reports", 'r', true},
                 {"by", 'b', false}},
                {},
                0};
    for (const Members::Map::Entry& entry : members.map().entries()) {
        const Member& member = entry.value;
        const std::string protocol = member.host.is_ipv6 ? "MLDv" : "IGMPv";
        sheet.rows.push_back({text(text_of(member.group)), text(text_of(member.host)),
                              text(text_of(member.vlans)), text(member.is_in ? "joined" : "left"),
                              time_of_day(member.since_us), time_of_day(member.last_us),
                              count(member.reports),
                              text(protocol + std::to_string(member.version))});
    }
    return sheet;
}

std::string parts_of(const Programme& programme) {
    std::string parts;
    for (std::size_t i = 0; i < programme.part_count; ++i) {
        const Programme::Part& part = programme.parts[i];
        parts +=
            (i == 0 ? "" : ", ") + std::to_string(part.pid) + " " + stream_type_name(part.type);
    }
    return programme.is_known ? parts : "-";
}

Sheet programmes_sheet(const Streams& streams) {
    Sheet sheet{"programmes",
                {{"stream", 'd', false},
                 {"source", 's', false},
                 {"VLAN", 'v', false},
                 {"programme", 'n', true},
                 {"PMT", 'p', true},
                 {"parts", '\0', false}},
                {},
                0};
    for (const Streams::Flows::Entry& entry : streams.flows().entries()) {
        const Flow& flow = entry.value;
        for (const Programme& programme : flow.transport_stream().programmes()) {
            sheet.rows.push_back(
                {text(dest_of(flow)),
                 text(end_of(flow.source(), flow.source_port())),
                 text(text_of(flow.vlans())),
                 {std::to_string(programme.number), static_cast<double>(programme.number)},
                 {std::to_string(programme.map_pid), static_cast<double>(programme.map_pid)},
                 text(parts_of(programme))});
        }
    }
    return sheet;
}

// ISO/IEC 13818-1 and ETSI EN 300 468 give these PIDs to tables.
std::string use_of(const Flow& flow, std::uint16_t pid) {
    constexpr std::pair<std::uint16_t, const char*> kTables[] = {
        {0, "PAT"}, {1, "CAT"}, {16, "NIT"}, {17, "SDT"}, {18, "EIT"}, {20, "TDT"}};
    for (const auto& [its, name] : kTables) {
        if (its == pid) {
            return name;
        }
    }
    for (const Programme& programme : flow.transport_stream().programmes()) {
        if (programme.map_pid == pid) {
            return "PMT";
        }
        for (std::size_t i = 0; i < programme.part_count; ++i) {
            if (programme.parts[i].pid == pid) {
                return stream_type_name(programme.parts[i].type);
            }
        }
    }
    return "-";
}

Sheet pids_sheet(const Streams& streams, const Overview& overview) {
    Sheet sheet{"PIDs",
                {{"stream", 'd', false},
                 {"source", 's', false},
                 {"VLAN", 'v', false},
                 {"PID", 'i', true},
                 {"use", 'u', false},
                 {"packets", 'p', true},
                 {"CC errors", 'c', true},
                 {"duplicates", 'x', true},
                 {"scrambled", 'z', true}},
                {},
                6};
    for (const Streams::Flows::Entry& entry : streams.flows().entries()) {
        const Flow& flow = entry.value;
        if (!flow.transport_stream().is_sure()) {
            continue;
        }
        for (const Overview::PidOf& pid : overview.pids_of(flow)) {
            sheet.rows.push_back({text(dest_of(flow)),
                                  text(end_of(flow.source(), flow.source_port())),
                                  text(text_of(flow.vlans())),
                                  {std::to_string(pid.pid), static_cast<double>(pid.pid)},
                                  text(use_of(flow, pid.pid)),
                                  count(pid.its->packets),
                                  count(pid.its->continuity_errors),
                                  count(pid.its->duplicates),
                                  count(pid.its->scrambled)});
        }
    }
    return sheet;
}

}  // namespace

std::vector<Sheet> Streams::sheets(bool is_summary) const {
    const Overview overview(*this);
    std::vector<Sheet> all;
    all.push_back(streams_sheet(*this, overview, is_summary));
    all.push_back(members_sheet(members_));
    all.push_back(programmes_sheet(*this));
    all.push_back(pids_sheet(*this, overview));
    return all;
}

std::string Streams::headline(bool is_summary) const {
    const Overview overview(*this);
    double bits_per_s = 0;
    std::uint64_t packets = forgotten_packets_;
    std::uint64_t lost = 0;
    std::uint64_t errors = 0;
    for (const Flows::Entry& entry : flows_.entries()) {
        bits_per_s += entry.value.bits_per_s();
        packets += entry.value.packets();
        lost += overview.rtp_sum(entry.value).lost;
        errors += entry.value.transport_stream().is_sure()
                      ? entry.value.transport_stream().continuity_errors()
                      : 0;
    }
    const std::string rate = is_summary ? "" : megabits(bits_per_s).text + " Mbit/s, ";
    std::string line = time_of_day(now_us_).text + "  " +
                       amount(flows_.entries().size(), " streams, ") + rate +
                       amount(packets, " packets, ") + amount(lost, " lost, ") +
                       amount(errors, " continuity errors");
    line += flows_.given_up() != 0 ? amount(flows_.given_up(), " streams given up").insert(0, ", ")
                                   : "";
    return line;
}

}  // namespace capture
