// The options after the TCP header.
#include "zxnetframe/tcp_options.hpp"

#include <algorithm>
#include <span>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

const OptionKind* find_kind(std::uint32_t kind) {
    return kind < kOptionKinds.size() && kOptionKinds[kind].name != nullptr ? &kOptionKinds[kind]
                                                                            : nullptr;
}

[[gnu::cold, gnu::noinline]] void dump_option(const OptionKind& kind, const tcp_option& option,
                                              zx::Caller caller) {
    const std::uint8_t* const val = option.val;
    ZX_LOG_AT(caller, info, "%s", kind.name);
    switch (kind.form) {
        case ValueForm::none:
            break;
        case ValueForm::number16:
            ZX_LOG_AT(caller, info, "    -val:%u", zx::load_be16(val));
            break;
        case ValueForm::number8:
            ZX_LOG_AT(caller, info, "    -val:%u", val[0]);
            break;
        case ValueForm::sack_permitted:
            ZX_LOG_AT(caller, info, "    -val:support sack");
            break;
        case ValueForm::blocks:
            ZX_LOG_AT(caller, info, "    -len:%u", option.len);
            for (int left = (option.len - kLengthOwn) / 8, at = 0; left > 0; --left, at += 8) {
                ZX_LOG_AT(caller, info, "    -slre:%u~%u", zx::load_be32(val + at),
                          zx::load_be32(val + at + 4));
            }
            break;
        case ValueForm::times:
            ZX_LOG_AT(caller, info, "    -tsval:%u", zx::load_be32(val));
            ZX_LOG_AT(caller, info, "    -tsecr:%u", zx::load_be32(val + 4));
            break;
        case ValueForm::opaque:
            ZX_LOG_AT(caller, info, "    -val:unsupport parse");
            break;
        case ValueForm::timeout:  // the unit and the number take a byte each
            ZX_LOG_AT(caller, info, "    -G bit:%d", val[0]);
            if (val[0] == 1) {
                ZX_LOG_AT(caller, info, "    -UserTimeout:%d(minute)", val[1]);
            } else {
                ZX_LOG_AT(caller, info, "    -UserTimeout:%d(s)", val[1]);
            }
            break;
    }
}

}  // namespace

void zx::frame::take_and_dump_options(tcp_view& tcp, const std::uint8_t* at, int size) {
    const zx::Caller caller("zxframe_innerapi_parseTcpOpt");
    ZX_LOG_AT(caller, info, "====TCP Options:(%d bytes)", size);
    take_options(
        tcp, at, size,
        [=](const tcp_option& option) { dump_option(kOptionKinds[option.kind], option, caller); },
        [=](std::uint8_t kind) { ZX_LOG_AT(caller, info, "unknow kind:%d", kind); });
}

std::uint32_t zx::frame::write_options(const zxbuildtcp_ctt& request, std::uint8_t* out) {
    const std::size_t count =
        std::min<std::size_t>(request.option_count, std::size(request.options));
    std::uint8_t* at = out;
    for (const tcp_option& option : std::span(request.options).first(count)) {
        const OptionKind* const kind = find_kind(option.kind);
        if (kind == nullptr || (kind->has_length && option.len < kLengthOwn)) {
            continue;
        }
        *at++ = static_cast<std::uint8_t>(option.kind);
        if (kind->has_length) {
            *at++ = option.len;
            std::memcpy(at, option.val, option.len - kLengthOwn);
            at += option.len - kLengthOwn;
        }
    }
    return static_cast<std::uint32_t>(at - out);
}

extern "C" void zxframe_innerapi_parseTcpOpt(ether_ctt* pether_ctt, const uint8_t* tcph,
                                             const uint8_t* opt_source) {
    if (ZX_ARE_GIVEN({pether_ctt, "pether_ctt"}, {tcph, "iph"}, {opt_source, "iph"})) {
        parse_options(*pether_ctt, tcph);
    }
}

extern "C" uint32_t zxframe_innerapi_buildTcpOpt(const zxbuildtcp_ctt* pzxbuildtcp_ctt,
                                                 uint8_t* outbuf) {
    if (!ZX_ARE_GIVEN({pzxbuildtcp_ctt, "pzxbuildtcp_ctt"}, {outbuf, "outbuf"})) {
        return 0;
    }
    return write_options(*pzxbuildtcp_ctt, outbuf);
}
