// The Ethernet header.
#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/names.hpp"
#include "zxnetframe/texts.hpp"
#include "zxnetframe/wire.hpp"
#include "zxnetframe/write.hpp"

using namespace zx::frame;

namespace {

[[gnu::cold, gnu::noinline]] void dump_header(const ether_ctt& record, zx::Caller caller = {}) {
    ZX_LOG_AT(caller, notice, "============  FRAME  ============");
    ZX_LOG_AT(caller, info, "============  ether header info  ============");
    ZX_LOG_AT(caller, info, "Destination:%s", record.str_dest_mac);
    ZX_LOG_AT(caller, info, "Source:%s", record.str_source_mac);
}

[[gnu::cold, gnu::noinline]] void dump_type(std::uint16_t ether_type, zx::Caller caller = {}) {
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

// The name, where there is one, and at least eight bytes of it.
void store_name(std::uint16_t ether_type, char* out) {
    constexpr std::size_t kCleared = 8;
    if (ether_type <= kMaxLength8023) {
        return;
    }
    if (const EtherType* const row = find_ether_type(ether_type)) {
        const char* const name = row->name.text;
        std::memcpy(out, name, kCleared);
        if (name[kCleared - 1] != '\0') {
            std::strcpy(out + kCleared, name + kCleared);
        }
    }
}

}  // namespace

extern "C" void zxframe_innerapi_parseEthrt(ether_ctt* pether_ctt, const uint8_t* peth) {
    if (!has_all(pether_ctt, Argument{peth, "peth"})) {
        return;
    }
    print_mac(peth + ether_at::dest, pether_ctt->str_dest_mac);
    print_mac(peth + ether_at::source, pether_ctt->str_source_mac);
    std::memcpy(pether_ctt->dest_mac, peth + ether_at::dest, sizeof pether_ctt->dest_mac);
    std::memcpy(pether_ctt->source_mac, peth + ether_at::source, sizeof pether_ctt->source_mac);
    pether_ctt->ether_type = zx::load_be16(peth + ether_at::type);
    if (pether_ctt->print_flag != 0) [[unlikely]] {
        dump_header(*pether_ctt);
    }
    zxframe_innerapi_printEthrtType(pether_ctt->print_flag, pether_ctt->ether_type,
                                    pether_ctt->ether_type_name);
}

extern "C" void zxframe_innerapi_printEthrtType(int8_t print_flag, uint16_t ether_type,
                                                char* ether_type_name) {
    if (ether_type_name == nullptr) {
        ZX_LOG_PARAM("ether_type_name");
        return;
    }
    if (print_flag != 0) [[unlikely]] {
        dump_type(ether_type);
    }
    store_name(ether_type, ether_type_name);
}

extern "C" void zxframe_innerapi_buildEthrt(ether_ctt* pether_ctt, const char* str_dest_mac,
                                            const char* str_source_mac, uint16_t ether_type,
                                            uint8_t* outbuf) {
    if (!has_all(pether_ctt, Argument{str_source_mac, "str_source_mac"},
                 Argument{outbuf, "outbuf"})) {
        return;
    }
    zxnet_api_macStr2Byte(str_dest_mac, pether_ctt->dest_mac);
    zxnet_api_macStr2Byte(str_source_mac, pether_ctt->source_mac);
    pether_ctt->ether_type = ether_type;
    write_ethernet(*pether_ctt, outbuf);
    zxframe_innerapi_parseEthrt(pether_ctt, outbuf);
}
