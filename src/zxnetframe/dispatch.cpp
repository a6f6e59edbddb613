// From the Ethernet header to the layer behind it.
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/names.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

[[gnu::cold, gnu::noinline]] void dump_unsupported(const char* func, std::uint16_t value) {
    if (const EtherType* const row = find_ether_type(value)) {
        ZX_LOG_FROM(func, info, "%s%s, no support to parse this frame", row->unsupported_prefix,
                    row->name.text);
    }
}

}  // namespace

extern "C" int32_t zxframe_api_doFrame(ether_ctt* pether_ctt, const uint8_t* frame_buf) {
    if (!has_all(__func__, pether_ctt, Argument{frame_buf, "frame_buf"})) {
        return -1;
    }
    zxframe_innerapi_parseEthrt(pether_ctt, frame_buf);
    const std::uint8_t* const network = frame_buf + ether_at::payload;
    switch (pether_ctt->ether_type) {
        case kEtherTypeIpv4:
            zxframe_innerapi_doIpv4(pether_ctt, network);
            break;
        case kEtherTypeArp:
            zxframe_innerapi_doArp(pether_ctt, network);
            break;
        case kEtherTypeIpv6:
            break;
        default:
            if (pether_ctt->print_flag != 0) [[unlikely]] {
                dump_unsupported(__func__, pether_ctt->ether_type);
            }
            break;
    }
    return 0;
}
