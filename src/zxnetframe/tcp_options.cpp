// The options behind the TCP header (RFC 9293, RFC 7323, RFC 2018, RFC 5482).
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "internal/bytes.hpp"
#include "zxframe.h"
#include "zxnetframe/messages.hpp"
#include "zxnetframe/wire.hpp"

using namespace zx::frame;

namespace {

// How the value of an option is dumped.
enum class ValueForm : std::uint8_t {
    none,
    number16,
    number8,
    sack_permitted,
    blocks,
    times,
    opaque,
    timeout
};

struct OptionKind {
    const char* name = nullptr;  // none: the kind is unknown
    bool has_length = false;     // the kind is followed by a length and a value
    ValueForm form = ValueForm::none;
};

constexpr std::uint32_t kUserTimeout = 28;

constexpr std::array<OptionKind, kUserTimeout + 1> kOptionKinds = [] {
    std::array<OptionKind, kUserTimeout + 1> kinds{};
    kinds[0] = {"EOL", false, ValueForm::none};
    kinds[1] = {"NOP", false, ValueForm::none};
    kinds[2] = {"MSS", true, ValueForm::number16};
    kinds[3] = {"WSO", true, ValueForm::number8};
    kinds[4] = {"SACKP", true, ValueForm::sack_permitted};
    kinds[5] = {"SACK", true, ValueForm::blocks};
    kinds[6] = {"ECHO", true, ValueForm::opaque};
    kinds[7] = {"ECHOREPLY", true, ValueForm::opaque};
    kinds[8] = {"TSOPT", true, ValueForm::times};
    kinds[9] = {"POCP", true, ValueForm::opaque};
    kinds[10] = {"POSP", true, ValueForm::opaque};
    kinds[kUserTimeout] = {"UTO", true, ValueForm::timeout};
    return kinds;
}();

const OptionKind* find_kind(std::uint32_t kind) {
    return kind < kOptionKinds.size() && kOptionKinds[kind].name != nullptr ? &kOptionKinds[kind]
                                                                            : nullptr;
}

// The same in short for every byte that may stand on the wire.
enum class Shape : std::uint8_t { unknown, bare, with_length };

constexpr std::array<Shape, 256> kShapes = [] {
    std::array<Shape, 256> shapes{};
    for (std::size_t kind = 0; kind < kOptionKinds.size(); ++kind) {
        shapes[kind] = kOptionKinds[kind].name == nullptr ? Shape::unknown
                       : kOptionKinds[kind].has_length    ? Shape::with_length
                                                          : Shape::bare;
    }
    return shapes;
}();

constexpr std::uint8_t kLengthOwn = 2;  // the kind and the length byte, which a length includes

[[gnu::cold, gnu::noinline]] void dump_option(const char* func, const OptionKind& kind,
                                              const tcp_option& option) {
    const std::uint8_t* const val = option.val;
    ZX_LOG_FROM(func, info, "%s", kind.name);
    switch (kind.form) {
        case ValueForm::none:
            break;
        case ValueForm::number16:
            ZX_LOG_FROM(func, info, "    -val:%u", zx::load_be16(val));
            break;
        case ValueForm::number8:
            ZX_LOG_FROM(func, info, "    -val:%u", val[0]);
            break;
        case ValueForm::sack_permitted:
            ZX_LOG_FROM(func, info, "    -val:support sack");
            break;
        case ValueForm::blocks:
            ZX_LOG_FROM(func, info, "    -len:%u", option.len);
            for (int left = (option.len - kLengthOwn) / 8, at = 0; left > 0; --left, at += 8) {
                ZX_LOG_FROM(func, info, "    -slre:%u~%u", zx::load_be32(val + at),
                            zx::load_be32(val + at + 4));
            }
            break;
        case ValueForm::times:
            ZX_LOG_FROM(func, info, "    -tsval:%u", zx::load_be32(val));
            ZX_LOG_FROM(func, info, "    -tsecr:%u", zx::load_be32(val + 4));
            break;
        case ValueForm::opaque:
            ZX_LOG_FROM(func, info, "    -val:unsupport parse");
            break;
        case ValueForm::timeout:  // the unit and the number are taken as a byte each
            ZX_LOG_FROM(func, info, "    -G bit:%d", val[0]);
            if (val[0] == 1) {
                ZX_LOG_FROM(func, info, "    -UserTimeout:%d(minute)", val[1]);
            } else {
                ZX_LOG_FROM(func, info, "    -UserTimeout:%d(s)", val[1]);
            }
            break;
    }
}

[[gnu::cold, gnu::noinline]] void dump_size(const char* func, int size) {
    ZX_LOG_FROM(func, info, "====TCP Options:(%d bytes)", size);
}

[[gnu::cold, gnu::noinline]] void dump_unknown(const char* func, std::uint32_t kind) {
    ZX_LOG_FROM(func, info, "unknow kind:%d", static_cast<int>(kind));
}

// Time stamps, which nearly every segment carries, go without a call.
void copy_value(std::uint8_t* to, const std::uint8_t* from, std::size_t size) {
    constexpr std::size_t kTimes = 8;
    if (size == kTimes) {
        std::memcpy(to, from, kTimes);
    } else {
        std::memcpy(to, from, size);
    }
}

}  // namespace

extern "C" void zxframe_innerapi_parseTcpOpt(ether_ctt* pether_ctt, const uint8_t* tcph,
                                             const uint8_t* opt_source) {
    if (!has_all(__func__, pether_ctt, Argument{tcph, "iph"}, Argument{opt_source, "iph"})) {
        return;
    }
    tcp_view& tcp = pether_ctt->tcp;
    const bool dumps = pether_ctt->print_flag != 0;
    const int size =
        (tcph[tcp_at::offset] >> 4) * static_cast<int>(kWord) - static_cast<int>(tcp_at::options);
    if (dumps) [[unlikely]] {
        dump_size(__func__, size);
    }
    const std::uint8_t* at = tcph + tcp_at::options;
    const std::uint8_t* const end = at + size;
    // Behind the options of earlier frames: it is the caller who sets the count back. A length may
    // lead beyond the end, but an option begins before it.
    if (tcp.option_count >= std::size(tcp.options)) {
        return;
    }
    tcp_option* option = tcp.options + tcp.option_count;
    for (; at < end && option < std::end(tcp.options); ++option) {
        const std::uint8_t kind = *at;
        const Shape shape = kShapes[kind];
        if (shape == Shape::unknown) {
            if (dumps) [[unlikely]] {
                dump_unknown(__func__, kind);
            }
            break;
        }
        option->kind = kind;
        if (shape == Shape::bare) {
            option->len = 0;
            at += 1;
        } else {
            const std::size_t len = at[1];
            if (len < kLengthOwn) {
                break;  // it would lead backwards
            }
            option->len = at[1];
            copy_value(option->val, at + kLengthOwn, len - kLengthOwn);
            at += len;
        }
        if (dumps) [[unlikely]] {
            dump_option(__func__, kOptionKinds[kind], *option);
        }
    }
    tcp.option_count = static_cast<std::uint32_t>(option - tcp.options);
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
