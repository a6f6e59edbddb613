// IGMP messages (RFC 1112, RFC 2236, RFC 3376). They are only built, never decoded.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint32_t kVersion3 = 3;
constexpr std::uint32_t kModeSources = 1;
constexpr std::uint8_t kQueryType = 0x11;

// For the versions 1 to 3.
constexpr std::array<std::uint8_t, 3> kJoinTypes{0x12, 0x16, 0x22};
constexpr std::array<std::uint8_t, 3> kLeaveTypes{0, 0x17, 0x22};

enum RecordType : std::uint8_t {
    kNone = 0,
    kChangeToInclude = 3,
    kChangeToExclude = 4,
    kAllowNewSources = 5,
    kBlockOldSources = 6,
};

// Logs on behalf of `caller`.
bool fits(const igmp_req& req, zx::Caller caller = {}) {
    if (req.source_count > ZXFRAME_IGMP_SOURCES) {
        ZX_LOG_AT(caller, error, "There are %u IGMP sources,more than %d", req.source_count,
                  ZXFRAME_IGMP_SOURCES);
        return false;
    }
    for (const auto& source : std::span(req.sources).first(req.source_count)) {
        if (std::memchr(source, '\0', sizeof source) == nullptr) {
            ZX_LOG_PARAM_AT(caller, "sources");
            return false;
        }
    }
    return true;
}

std::uint32_t message_type(const igmp_req& req) {
    if (req.action == ZXFRAME_IGMP_QUERY) {
        return kQueryType;
    }
    const std::uint32_t index = req.version - 1;  // version 0 gives an index that is too large
    if (index >= kJoinTypes.size()) {
        return 0;
    }
    return req.action == ZXFRAME_IGMP_JOIN    ? kJoinTypes[index]
           : req.action == ZXFRAME_IGMP_LEAVE ? kLeaveTypes[index]
                                              : 0;
}

std::uint32_t record_type(const igmp_req& req) {
    const bool by_sources = req.mode == kModeSources;
    if (req.version == kVersion3 && req.action == ZXFRAME_IGMP_JOIN) {
        return by_sources ? kAllowNewSources : kChangeToExclude;
    }
    if (req.version == kVersion3 && req.action == ZXFRAME_IGMP_LEAVE) {
        return by_sources ? kBlockOldSources : kChangeToInclude;
    }
    return kNone;
}

void fill_view(igmp_view& view, const igmp_req& req) {
    view.type = static_cast<std::uint8_t>(message_type(req));
    view.code = 0;
    view.check = 0;
    view.reserved = 0;
    view.group_records = 1;
    view.record_type = static_cast<std::uint8_t>(record_type(req));
    view.aux_len = 0;
    view.source_count = req.source_count;
    view.group = address_to_send(req.group);
    for (std::size_t i = 0; i < req.source_count; ++i) {
        view.sources[i] = address_to_send(req.sources[i]);
    }
}

void set_checksum(igmp_view& view, std::uint8_t* message, std::uint32_t size) {
    view.check = zxnet_api_checksum(message, size);
    zx::store_be16(message + igmp_at::check, view.check);
}

void dump_short(const igmp_view& view, std::uint32_t size, zx::Caller caller) {
    ZX_LOG_AT(caller, info,
              "=============== IGMP data info(datalen:%d)===============", static_cast<int>(size));
    ZX_LOG_AT(caller, info, "type :0x%02x", view.type);
    ZX_LOG_AT(caller, info, "Max Resp Time:%d sec", view.code);
    ZX_LOG_AT(caller, info, "Checksum:0x%04x", view.check);
    ZX_LOG_AT(caller, info, "Multicast Addr:%s", AddressText(htonl(view.group)).text);
}

void dump_report(const igmp_view& view, std::uint32_t size, zx::Caller caller) {
    ZX_LOG_AT(caller, info,
              "=============== IGMP data info(datalen:%d)===============", static_cast<int>(size));
    ZX_LOG_AT(caller, info, "type :0x%02x", view.type);
    ZX_LOG_AT(caller, info, "Reserved :%05d", 0);
    ZX_LOG_AT(caller, info, "Checksum:0x%04x", view.check);
    ZX_LOG_AT(caller, info, "Reserved :%04d", view.reserved);
    ZX_LOG_AT(caller, info, "Num Group Records :%d", view.group_records);
    ZX_LOG_AT(caller, info, "Record Type:%d sec", view.record_type);
    ZX_LOG_AT(caller, info, "Rux Data:%d sec", view.aux_len);
    ZX_LOG_AT(caller, info, "Num Src:%d sec", view.source_count);
    ZX_LOG_AT(caller, info, "Multicast Addr:%s", AddressText(htonl(view.group)).text);
}

// Writes a message of version 1 or 2, or a query.
std::uint32_t write_short(igmp_view& view, bool dumps, std::uint8_t* out) {
    constexpr auto kSize = static_cast<std::uint32_t>(igmp_at::short_end);
    out[igmp_at::type] = view.type;
    out[igmp_at::code] = view.code;
    zx::store_be16(out + igmp_at::check, 0);
    zx::store_be32(out + igmp_at::group, view.group);
    set_checksum(view, out, kSize);
    if (dumps) {
        dump_short(view, kSize, "zxframe_innerapi_getIgmpData1");
    }
    return kSize;
}

// Writes a report of version 3.
std::uint32_t write_report(igmp_view& view, bool dumps, std::uint8_t* out) {
    const std::size_t count = std::min<std::size_t>(view.source_count, std::size(view.sources));
    const auto size = static_cast<std::uint32_t>(igmp_at::sources + count * sizeof view.group);
    out[igmp_at::type] = view.type;
    out[igmp_at::code] = 0;
    zx::store_be16(out + igmp_at::check, 0);
    zx::store_be16(out + igmp_at::reserved, view.reserved);
    zx::store_be16(out + igmp_at::group_records, view.group_records);
    out[igmp_at::record_type] = view.record_type;
    out[igmp_at::aux_len] = view.aux_len;
    zx::store_be16(out + igmp_at::source_count, static_cast<std::uint16_t>(count));
    zx::store_be32(out + igmp_at::record_group, view.group);
    for (std::size_t i = 0; i < count; ++i) {
        zx::store_be32(out + igmp_at::sources + i * sizeof view.group, view.sources[i]);
    }
    set_checksum(view, out, size);
    if (dumps) {
        dump_report(view, size, "zxframe_innerapi_getIgmpData2");
    }
    return size;
}

// The caller has checked with fits().
std::uint32_t write_message(ether_ctt& record, const igmp_req& req, std::uint8_t* out) {
    igmp_view& view = record.igmp;
    const bool dumps = record.print_flag != 0;
    fill_view(view, req);
    const bool is_report = req.action == ZXFRAME_IGMP_JOIN || req.action == ZXFRAME_IGMP_LEAVE;
    if (is_report && req.version == kVersion3) {
        return write_report(view, dumps, out);
    }
    if (req.action == ZXFRAME_IGMP_QUERY || (is_report && (req.version == 1 || req.version == 2))) {
        return write_short(view, dumps, out);
    }
    return 0;
}

}  // namespace

extern "C" int32_t zxframe_api_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req,
                                         uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {outbuf, "pether_pkt"}, {req, "req"})) {
        return -1;
    }
    if (!ZX_ARE_GIVEN({req->str_dest_mac, "str_dest_mac"}, {req->str_source_mac, "str_source_mac"},
                      {req->source_ip, "source_ip"}, {req->group, "group"})) {
        return -1;
    }
    if (!fits(*req)) {
        return -1;
    }
    ether_ctt& record = *pether_ctt;
    build_ethernet(record, req->str_dest_mac, req->str_source_mac, kEtherTypeIpv4, outbuf);
    // Deliberate: the length in the IPv4 header depends on the version alone. It does not count the
    // sources of a report, and for a query of version 3, which is short, it is too large.
    const std::size_t announced = req->version == kVersion3 ? igmp_at::sources : igmp_at::short_end;
    build_ipv4(record, kProtocolIgmp, req->source_ip, req->group,
               static_cast<std::uint32_t>(announced), outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * record.ipv4.header_len;
    return static_cast<int32_t>(offset + write_message(record, *req, outbuf + offset));
}

extern "C" uint32_t zxframe_innerapi_getIgmpType(const igmp_req* req) {
    return ZX_ARE_GIVEN({req, "req"}) ? message_type(*req) : 0;
}

extern "C" uint32_t zxframe_innerapi_getIgmpRecordType(const igmp_req* req) {
    return ZX_ARE_GIVEN({req, "req"}) ? record_type(*req) : 0;
}

extern "C" uint32_t zxframe_innerapi_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req,
                                               uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {req, "req"}, {outbuf, "outbuf"}) ||
        !fits(*req)) {
        return 0;
    }
    return write_message(*pether_ctt, *req, outbuf);
}

extern "C" uint32_t zxframe_innerapi_getIgmpData1(ether_ctt* pether_ctt, igmp_view* view,
                                                  uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {view, "view"}, {outbuf, "outbuf"})) {
        return 0;
    }
    return write_short(*view, pether_ctt->print_flag != 0, outbuf);
}

extern "C" uint32_t zxframe_innerapi_getIgmpData2(ether_ctt* pether_ctt, igmp_view* view,
                                                  uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {view, "view"}, {outbuf, "outbuf"})) {
        return 0;
    }
    return write_report(*view, pether_ctt->print_flag != 0, outbuf);
}
