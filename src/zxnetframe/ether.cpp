// The Ethernet header.
#include "internal/bytes.hpp"
#include "internal/fixed_text.hpp"
#include "zxframe.h"
#include "zxnetframe/layers.hpp"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/names.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

[[gnu::cold, gnu::noinline]] void dump_header(const ether_ctt& record, zx::Caller caller) {
    ZX_LOG_AT(caller, notice, "============  FRAME  ============");
    ZX_LOG_AT(caller, info, "============  ether header info  ============");
    ZX_LOG_AT(caller, info, "Destination:%s", record.str_dest_mac);
    ZX_LOG_AT(caller, info, "Source:%s", record.str_source_mac);
}

[[gnu::cold, gnu::noinline]] void dump_type(std::uint16_t ether_type, zx::Caller caller) {
    constexpr std::uint16_t kFirstTest = 0x0101;
    constexpr std::uint16_t kLastTest = 0x01FF;
    if (ether_type >= kFirstTest && ether_type <= kLastTest) {
        ZX_LOG_AT(caller, info, "test");
    } else if (ether_type <= kMaxLength8023) {
        ZX_LOG_AT(caller, info, "IEEE 802.3 len:%d", ether_type);
    } else if (const EtherType* const row = find_ether_type(ether_type)) {
        ZX_LOG_AT(caller, info, "Type:%s", row->name.text);
    } else {
        ZX_LOG_AT(caller, info, "Unknow ether type(%#x)", ether_type);
    }
}

// Stores the name. A name of less than eight bytes is filled up with zeros to eight. For a type
// without a name it stores nothing.
void name_type(std::int8_t print_flag, std::uint16_t ether_type, char* out) {
    if (print_flag != 0) [[unlikely]] {
        dump_type(ether_type, "zxframe_innerapi_printEthrtType");
    }
    if (ether_type <= kMaxLength8023) {
        return;
    }
    if (const EtherType* const row = find_ether_type(ether_type)) {
        const char* const name = row->name.text;
        std::memcpy(out, name, zx::kClearedSize);
        if (name[zx::kClearedSize - 1] != '\0') {
            std::strcpy(out + zx::kClearedSize, name + zx::kClearedSize);
        }
    }
}

}  // namespace

void zx::frame::parse_ethernet(ether_ctt& record, const std::uint8_t* at) {
    print_mac(at + ether_at::dest, record.str_dest_mac);
    print_mac(at + ether_at::source, record.str_source_mac);
    std::memcpy(record.dest_mac, at + ether_at::dest, sizeof record.dest_mac);
    std::memcpy(record.source_mac, at + ether_at::source, sizeof record.source_mac);
    record.ether_type = zx::load_be16(at + ether_at::type);
    if (record.print_flag != 0) [[unlikely]] {
        dump_header(record, "zxframe_innerapi_parseEthrt");
    }
    name_type(record.print_flag, record.ether_type, record.ether_type_name);
}

void zx::frame::build_ethernet(ether_ctt& record, const char* dest_mac, const char* source_mac,
                               std::uint16_t ether_type, std::uint8_t* out) {
    zxnet_api_macStr2Byte(dest_mac, record.dest_mac);
    zxnet_api_macStr2Byte(source_mac, record.source_mac);
    record.ether_type = ether_type;
    write_ethernet(record, out);
    parse_ethernet(record, out);
}

extern "C" void zxframe_innerapi_parseEthrt(ether_ctt* pether_ctt, const uint8_t* peth) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {peth, "peth"})) {
        parse_ethernet(*pether_ctt, peth);
    }
}

extern "C" void zxframe_innerapi_printEthrtType(int8_t print_flag, uint16_t ether_type,
                                                char* ether_type_name) {
    if (ZX_ARE_GIVEN({ether_type_name, "ether_type_name"})) {
        name_type(print_flag, ether_type, ether_type_name);
    }
}

extern "C" void zxframe_innerapi_buildEthrt(ether_ctt* pether_ctt, const char* str_dest_mac,
                                            const char* str_source_mac, uint16_t ether_type,
                                            uint8_t* outbuf) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {str_source_mac, "str_source_mac"},
                     {outbuf, "outbuf"})) {
        build_ethernet(*pether_ctt, str_dest_mac, str_source_mac, ether_type, outbuf);
    }
}
