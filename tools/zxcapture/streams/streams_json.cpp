// The tables of streams as JSON.
#include <algorithm>
#include <cstdio>

#include "streams/json_members.hpp"
#include "streams/overview.hpp"

namespace capture {
namespace {

using tools::Json;

constexpr std::int64_t kRecentUs = 2000000;  // as long as a flow is active without packets

// Up to the last one that is not 0.
void add_histogram(cJSON* object, const Gaps& gaps) {
    cJSON* const array = cJSON_AddArrayToObject(object, "gap_histogram");
    const auto& counts = gaps.histogram();
    std::size_t size = counts.size();
    while (size != 0 && counts[size - 1] == 0) {
        --size;
    }
    for (std::size_t i = 0; i < size; ++i) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(static_cast<double>(counts[i])));
    }
}

void add_source(cJSON* array, const Overview::Rtp& rtp) {
    cJSON* const object = add_object(array);
    const RtpSource& source = *rtp.source;
    char number[sizeof "0x00000000"];
    std::snprintf(number, sizeof number, "0x%08x", rtp.sender);
    put(object, "ssrc", std::string(number));
    put(object, "payload_type", std::uint64_t{source.payload_type()});
    put(object, "clock_hz", std::uint64_t{source.clock_rate()});
    put(object, "packets", source.packets());
    put(object, "lost", source.lost());
    put(object, "late", source.disordered());
    put(object, "duplicates", source.duplicates());
    put(object, "strays", source.strays());
    put(object, "restarts", source.restarts());
    put(object, "jitter_us", source.jitter_us());
    put(object, "jitter_mean_us", source.jitter_mean_us());
    put(object, "jitter_most_us", source.jitter_most_us());
}

void add_programme(cJSON* array, const Programme& programme) {
    cJSON* const object = add_object(array);
    put(object, "number", std::uint64_t{programme.number});
    put(object, "pmt_pid", std::uint64_t{programme.map_pid});
    if (!programme.is_known) {
        return;
    }
    put(object, "pcr_pid", std::uint64_t{programme.clock_pid});
    cJSON* const parts = cJSON_AddArrayToObject(object, "parts");
    for (std::size_t i = 0; i < programme.part_count; ++i) {
        cJSON* const part = add_object(parts);
        put(part, "pid", std::uint64_t{programme.parts[i].pid});
        put(part, "stream_type", std::uint64_t{programme.parts[i].type});
        put(part, "name", stream_type_name(programme.parts[i].type));
    }
}

void add_transport_stream(cJSON* flow_object, const Flow& flow, const Overview& overview) {
    const TransportStream& stream = flow.transport_stream();
    cJSON* const object = cJSON_AddObjectToObject(flow_object, "ts");
    put(object, "packets", stream.packets());
    put(object, "null_packets", stream.null_packets());
    put(object, "continuity_errors", stream.continuity_errors());
    put(object, "duplicates", stream.duplicates());
    put(object, "sync_losses", stream.sync_losses());
    put(object, "transport_errors", stream.transport_errors());
    put(object, "cut_payloads", stream.cut_payloads());
    cJSON* const programmes = cJSON_AddArrayToObject(object, "programmes");
    for (const Programme& programme : stream.programmes()) {
        add_programme(programmes, programme);
    }
    cJSON* const pids = cJSON_AddArrayToObject(object, "pids");
    for (const Overview::PidOf& pid : overview.pids_of(flow)) {
        cJSON* const its = add_object(pids);
        put(its, "pid", std::uint64_t{pid.pid});
        put(its, "packets", pid.its->packets);
        put(its, "continuity_errors", pid.its->continuity_errors);
        put(its, "duplicates", pid.its->duplicates);
        put(its, "scrambled", pid.its->scrambled);
    }
}

void add_flow(cJSON* array, const Flow& flow, const Overview& overview) {
    cJSON* const object = add_object(array);
    put_vlans(object, flow.vlans());
    put(object, "source", text_of(flow.source()));
    put(object, "source_port", std::uint64_t{flow.source_port()});
    put(object, "destination", text_of(flow.dest()));
    put(object, "destination_port", std::uint64_t{flow.dest_port()});
    put(object, "kind", std::string(flow.kind()));
    put(object, "first_us", flow.first_us());
    put(object, "last_us", flow.last_us());
    put(object, "bits_per_s", flow.bits_per_s());
    put(object, "mean_bits_per_s", flow.mean_bits_per_s());
    put(object, "packets_per_s", flow.packets_per_s());
    put(object, "packets", flow.packets());
    put(object, "bytes", flow.bytes());
    put(object, "payload_bytes", flow.payload_bytes());
    put(object, "members", std::uint64_t{overview.members_of(flow)});
    if (flow.gaps().count() != 0) {
        put(object, "gap_least_us", flow.gaps().least_us());
        put(object, "gap_mean_us", flow.gaps().mean_us());
        put(object, "gap_most_us", flow.gaps().most_us());
        add_histogram(object, flow.gaps());
    }
    if (flow.is_rtp()) {
        put(object, "other_packets", flow.other_packets());
        cJSON* const sources = cJSON_AddArrayToObject(object, "rtp");
        for (const Overview::Rtp& rtp : overview.sources_of(flow)) {
            add_source(sources, rtp);
        }
    }
    if (flow.transport_stream().is_sure()) {
        add_transport_stream(object, flow, overview);
    }
}

void add_member(cJSON* array, const Member& member) {
    cJSON* const object = add_object(array);
    put_vlans(object, member.vlans);
    put(object, "group", text_of(member.group));
    put(object, "host", text_of(member.host));
    cJSON_AddBoolToObject(object, "joined", member.is_in);
    put(object, "since_us", member.since_us);
    put(object, "last_report_us", member.last_us);
    put(object, "reports", member.reports);
    put(object, "sources", std::uint64_t{member.sources});
    put(object, "protocol",
        (member.host.is_ipv6 ? "MLDv" : "IGMPv") + std::to_string(member.version));
}

}  // namespace

// All members and all flows are in the summary. A second has those that were not idle.
Json Streams::json(bool is_summary) const {
    const Overview overview(*this, !is_summary);
    Json object(cJSON_CreateObject());
    cJSON_AddBoolToObject(object.get(), "summary", is_summary);
    put(object.get(), "time_us", now_us_);
    cJSON* const flows = cJSON_AddArrayToObject(object.get(), "flows");
    for (const Flows::Entry& entry : flows_.entries()) {
        if (is_summary || entry.value.is_active()) {
            add_flow(flows, entry.value, overview);
        }
    }
    cJSON* const members = cJSON_AddArrayToObject(object.get(), "members");
    for (const Members::Map::Entry& entry : members_.map().entries()) {
        if (is_summary || entry.value.last_us + kRecentUs > now_us_) {
            add_member(members, entry.value);
        }
    }
    put(object.get(), "flows_given_up", flows_.given_up());
    put(object.get(), "packets_given_up", forgotten_packets_);
    put(object.get(), "rtp_sources_given_up", sources_.given_up());
    put(object.get(), "pids_given_up", pids_.given_up());
    put(object.get(), "members_given_up", members_.map().given_up());
    put(object.get(), "later_fragments", later_fragments_);
    return object;
}

}  // namespace capture
