// The TCP options (RFC 9293, RFC 7323, RFC 2018, RFC 5482), and how they are read from a segment.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "zxframe.h"
#include "zxnetframe/wire.hpp"

namespace zx::frame {

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
    const char* name = nullptr;  // null: the kind is unknown
    bool has_length = false;     // a length and a value follow the kind
    ValueForm form = ValueForm::none;
};

inline constexpr std::uint32_t kUserTimeout = 28;

inline constexpr std::array<OptionKind, kUserTimeout + 1> kOptionKinds = [] {
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

// The same in brief, for every kind that a segment may contain.
enum class Shape : std::uint8_t { unknown, bare, with_length };

inline constexpr std::array<Shape, 256> kShapes = [] {
    std::array<Shape, 256> shapes{};
    for (std::size_t kind = 0; kind < kOptionKinds.size(); ++kind) {
        shapes[kind] = kOptionKinds[kind].name == nullptr ? Shape::unknown
                       : kOptionKinds[kind].has_length    ? Shape::with_length
                                                          : Shape::bare;
    }
    return shapes;
}();

inline constexpr std::uint8_t kLengthOwn = 2;  // bytes of the kind and the length

// Appends the options to those of earlier frames; the caller resets the count. The length of an
// option may lead beyond the end, but every option begins before it. `on_option` gets each option
// that was taken, `on_unknown` an unknown kind, which ends the options.
template <typename OnOption, typename OnUnknown>
void take_options(tcp_view& tcp, const std::uint8_t* at, int size, OnOption on_option,
                  OnUnknown on_unknown) {
    if (tcp.option_count >= std::size(tcp.options)) {
        return;
    }
    const std::uint8_t* const end = at + size;
    tcp_option* option = tcp.options + tcp.option_count;
    for (; at < end && option < std::end(tcp.options); ++option) {
        const std::uint8_t kind = *at;
        const Shape shape = kShapes[kind];
        option->kind = kind;
        if (shape == Shape::unknown) {
            on_unknown(kind);
            break;
        }
        if (shape == Shape::bare) {
            option->len = 0;
            at += 1;
        } else {
            const std::size_t len = option->len = at[1];
            if (len < kLengthOwn) {
                break;  // too short to be a length
            }
            std::memcpy(option->val, at + kLengthOwn, len - kLengthOwn);
            at += len;
        }
        on_option(*option);
    }
    tcp.option_count = static_cast<std::uint32_t>(option - tcp.options);
}

// Takes two NOPs and time stamps, the layout of RFC 7323 that nearly every segment has. False for
// any other options.
[[nodiscard]] inline bool take_times(tcp_view& tcp, const std::uint8_t* at, int size) {
    constexpr std::uint8_t kLayout[] = {1, 1, 8, 10};
    constexpr int kSize = 12;
    constexpr std::uint32_t kOptions = 3;
    if (size != kSize || std::memcmp(at, kLayout, sizeof kLayout) != 0 ||
        tcp.option_count > std::size(tcp.options) - kOptions) {
        return false;
    }
    tcp_option* const option = tcp.options + tcp.option_count;
    option[0].kind = option[1].kind = kLayout[0];
    option[0].len = option[1].len = 0;
    option[2].kind = kLayout[2];
    option[2].len = kLayout[3];
    std::memcpy(option[2].val, at + sizeof kLayout, kSize - sizeof kLayout);
    tcp.option_count += kOptions;
    return true;
}

// Takes the options without a dump.
inline void take_options(tcp_view& tcp, const std::uint8_t* at, int size) {
    if (!take_times(tcp, at, size)) {
        take_options(
            tcp, at, size, [](const tcp_option&) {}, [](std::uint8_t) {});
    }
}

[[gnu::cold]] void take_and_dump_options(tcp_view& tcp, const std::uint8_t* at, int size);

// Takes the options of a whole header.
inline void parse_options(ether_ctt& record, const std::uint8_t* header) {
    const int size =
        (header[tcp_at::offset] >> 4) * static_cast<int>(kWord) - static_cast<int>(tcp_at::options);
    if (record.print_flag != 0) [[unlikely]] {
        take_and_dump_options(record.tcp, header + tcp_at::options, size);
    } else {
        take_options(record.tcp, header + tcp_at::options, size);
    }
}

// Writes the options of the request. Returns how many bytes they take.
std::uint32_t write_options(const zxbuildtcp_ctt& request, std::uint8_t* out);

}  // namespace zx::frame
