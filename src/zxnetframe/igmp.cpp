// IGMP messages (RFC 1112, RFC 2236, RFC 3376), which are only built.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

constexpr std::uint32_t kVersion3 = 3;
constexpr std::uint32_t kModeSources = 1;
constexpr std::uint8_t kQueryType = 0x11;

// By version, from 1 on.
constexpr std::array<std::uint8_t, 3> kJoinTypes{0x12, 0x16, 0x22};
constexpr std::array<std::uint8_t, 3> kLeaveTypes{0, 0x17, 0x22};

enum RecordType : std::uint8_t {
    kNone = 0,
    kChangeToInclude = 3,
    kChangeToExclude = 4,
    kAllowNewSources = 5,
    kBlockOldSources = 6,
};

// Speaks for the caller.
bool fits(const igmp_req& req, zx::Caller caller = {}) {
    if (req.source_count > ZXFRAME_IGMP_SOURCES) {
        ZX_LOG_AT(caller, error, "There are %u IGMP sources,more than %d", req.source_count,
                  ZXFRAME_IGMP_SOURCES);
        return false;
    }
    for (const auto& source : std::span(req.sources).first(req.source_count)) {
        if (std::memchr(source, '\0', sizeof source) == nullptr) {
            refuse("sources", caller);
            return false;
        }
    }
    return true;
}

void fill_view(igmp_view& view, const igmp_req& req) {
    view.type = static_cast<std::uint8_t>(zxframe_innerapi_getIgmpType(&req));
    view.code = 0;
    view.check = 0;
    view.reserved = 0;
    view.group_records = 1;
    view.record_type = static_cast<std::uint8_t>(zxframe_innerapi_getIgmpRecordType(&req));
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

const char* missing_text(const igmp_req& req) {
    return req.str_dest_mac == nullptr     ? "str_dest_mac"
           : req.str_source_mac == nullptr ? "str_source_mac"
           : req.source_ip == nullptr      ? "source_ip"
           : req.group == nullptr          ? "group"
                                           : nullptr;
}

}  // namespace

extern "C" int32_t zxframe_api_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req,
                                         uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{outbuf, "pether_pkt"})) {
        return -1;
    }
    if (const char* const missing = req == nullptr ? "req" : missing_text(*req)) {
        ZX_LOG_PARAM(missing);
        return -1;
    }
    if (!fits(*req)) {
        return -1;
    }
    zxframe_innerapi_buildEthrt(pether_ctt, req->str_dest_mac, req->str_source_mac, kEtherTypeIpv4,
                                outbuf);
    // By the version alone: neither the sources of a report count nor the short form of a query.
    const std::size_t announced = req->version == kVersion3 ? igmp_at::sources : igmp_at::short_end;
    zxframe_innerapi_buildIpv4(pether_ctt, kProtocolIgmp, req->source_ip, req->group,
                               static_cast<std::uint32_t>(announced), outbuf + ether_at::payload);
    const std::size_t offset = ether_at::payload + kWord * pether_ctt->ipv4.header_len;
    return static_cast<int32_t>(offset +
                                zxframe_innerapi_buildIgmp(pether_ctt, req, outbuf + offset));
}

extern "C" uint32_t zxframe_innerapi_getIgmpType(const igmp_req* req) {
    if (req == nullptr) {
        ZX_LOG_PARAM("req");
        return 0;
    }
    if (req->action == ZXFRAME_IGMP_QUERY) {
        return kQueryType;
    }
    const std::uint32_t index = req->version - 1;  // version 0 leads out of the tables, too
    if (index >= kJoinTypes.size()) {
        return 0;
    }
    return req->action == ZXFRAME_IGMP_JOIN    ? kJoinTypes[index]
           : req->action == ZXFRAME_IGMP_LEAVE ? kLeaveTypes[index]
                                               : 0;
}

extern "C" uint32_t zxframe_innerapi_getIgmpRecordType(const igmp_req* req) {
    if (req == nullptr) {
        ZX_LOG_PARAM("req");
        return 0;
    }
    const bool by_sources = req->mode == kModeSources;
    if (req->version == kVersion3 && req->action == ZXFRAME_IGMP_JOIN) {
        return by_sources ? kAllowNewSources : kChangeToExclude;
    }
    if (req->version == kVersion3 && req->action == ZXFRAME_IGMP_LEAVE) {
        return by_sources ? kBlockOldSources : kChangeToInclude;
    }
    return kNone;
}

extern "C" uint32_t zxframe_innerapi_buildIgmp(ether_ctt* pether_ctt, const igmp_req* req,
                                               uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{req, "req"}, Argument{outbuf, "outbuf"})) {
        return 0;
    }
    if (!fits(*req)) {
        return 0;
    }
    igmp_view& view = pether_ctt->igmp;
    fill_view(view, *req);
    const bool is_report = req->action == ZXFRAME_IGMP_JOIN || req->action == ZXFRAME_IGMP_LEAVE;
    if (is_report && req->version == kVersion3) {
        return zxframe_innerapi_getIgmpData2(pether_ctt, &view, outbuf);
    }
    if (req->action == ZXFRAME_IGMP_QUERY ||
        (is_report && (req->version == 1 || req->version == 2))) {
        return zxframe_innerapi_getIgmpData1(pether_ctt, &view, outbuf);
    }
    return 0;
}

extern "C" uint32_t zxframe_innerapi_getIgmpData1(ether_ctt* pether_ctt, igmp_view* view,
                                                  uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{view, "view"}, Argument{outbuf, "outbuf"})) {
        return 0;
    }
    constexpr auto kSize = static_cast<std::uint32_t>(igmp_at::short_end);
    outbuf[igmp_at::type] = view->type;
    outbuf[igmp_at::code] = view->code;
    zx::store_be16(outbuf + igmp_at::check, 0);
    zx::store_be32(outbuf + igmp_at::group, view->group);
    set_checksum(*view, outbuf, kSize);
    if (pether_ctt->print_flag != 0) {
        ZX_LOG(info, "=============== IGMP data info(datalen:%d)===============",
               static_cast<int>(kSize));
        ZX_LOG(info, "type :0x%02x", view->type);
        ZX_LOG(info, "Max Resp Time:%d sec", view->code);
        ZX_LOG(info, "Checksum:0x%04x", view->check);
        ZX_LOG(info, "Multicast Addr:%s", AddressText(htonl(view->group)).text);
    }
    return kSize;
}

extern "C" uint32_t zxframe_innerapi_getIgmpData2(ether_ctt* pether_ctt, igmp_view* view,
                                                  uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{view, "view"}, Argument{outbuf, "outbuf"})) {
        return 0;
    }
    const std::size_t count = std::min<std::size_t>(view->source_count, std::size(view->sources));
    const auto size = static_cast<std::uint32_t>(igmp_at::sources + count * sizeof view->group);
    outbuf[igmp_at::type] = view->type;
    outbuf[igmp_at::code] = 0;
    zx::store_be16(outbuf + igmp_at::check, 0);
    zx::store_be16(outbuf + igmp_at::reserved, view->reserved);
    zx::store_be16(outbuf + igmp_at::group_records, view->group_records);
    outbuf[igmp_at::record_type] = view->record_type;
    outbuf[igmp_at::aux_len] = view->aux_len;
    zx::store_be16(outbuf + igmp_at::source_count, static_cast<std::uint16_t>(count));
    zx::store_be32(outbuf + igmp_at::record_group, view->group);
    for (std::size_t i = 0; i < count; ++i) {
        zx::store_be32(outbuf + igmp_at::sources + i * sizeof view->group, view->sources[i]);
    }
    set_checksum(*view, outbuf, size);
    if (pether_ctt->print_flag != 0) {
        ZX_LOG(info,
               "=============== IGMP data info(datalen:%d)===============", static_cast<int>(size));
        ZX_LOG(info, "type :0x%02x", view->type);
        ZX_LOG(info, "Reserved :%05d", 0);
        ZX_LOG(info, "Checksum:0x%04x", view->check);
        ZX_LOG(info, "Reserved :%04d", view->reserved);
        ZX_LOG(info, "Num Group Records :%d", view->group_records);
        ZX_LOG(info, "Record Type:%d sec", view->record_type);
        ZX_LOG(info, "Rux Data:%d sec", view->aux_len);
        ZX_LOG(info, "Num Src:%d sec", view->source_count);
        ZX_LOG(info, "Multicast Addr:%s", AddressText(htonl(view->group)).text);
    }
    return size;
}
