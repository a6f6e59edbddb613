// The options behind the TCP header.
#include "zxnetframe/tcp_options.hpp"

#include <algorithm>

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
        case ValueForm::timeout:  // the unit and the number are taken as a byte each
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

extern "C" void zxframe_innerapi_parseTcpOpt(ether_ctt* pether_ctt, const uint8_t* tcph,
                                             const uint8_t* opt_source) {
    if (!has_all(pether_ctt, Argument{tcph, "iph"}, Argument{opt_source, "iph"})) {
        return;
    }
    const int size =
        (tcph[tcp_at::offset] >> 4) * static_cast<int>(kWord) - static_cast<int>(tcp_at::options);
    const std::uint8_t* const options = tcph + tcp_at::options;
    if (pether_ctt->print_flag == 0) [[likely]] {
        take_options(pether_ctt->tcp, options, size);
        return;
    }
    const zx::Caller here;
    ZX_LOG(info, "====TCP Options:(%d bytes)", size);
    take_options(
        pether_ctt->tcp, options, size,
        [=](const tcp_option& option) { dump_option(kOptionKinds[option.kind], option, here); },
        [=](std::uint8_t kind) { ZX_LOG_AT(here, info, "unknow kind:%d", kind); });
}

extern "C" uint32_t zxframe_innerapi_buildTcpOpt(const zxbuildtcp_ctt* pzxbuildtcp_ctt,
                                                 uint8_t* outbuf) {
    if (pzxbuildtcp_ctt == nullptr || outbuf == nullptr) {
        ZX_LOG_PARAM(pzxbuildtcp_ctt == nullptr ? "pzxbuildtcp_ctt" : "outbuf");
        return 0;
    }
    const tcp_option* const options = pzxbuildtcp_ctt->options;
    const std::size_t count =
        std::min<std::size_t>(pzxbuildtcp_ctt->option_count, std::size(pzxbuildtcp_ctt->options));
    std::uint8_t* out = outbuf;
    for (const tcp_option* option = options; option < options + count; ++option) {
        const OptionKind* const kind = find_kind(option->kind);
        if (kind == nullptr || (kind->has_length && option->len < kLengthOwn)) {
            continue;
        }
        *out++ = static_cast<std::uint8_t>(option->kind);
        if (kind->has_length) {
            *out++ = option->len;
            std::memcpy(out, option->val, option->len - kLengthOwn);
            out += option->len - kLengthOwn;
        }
    }
    return static_cast<std::uint32_t>(out - outbuf);
}
