// Compares the byte tools with their plain algorithms, for any content: buffers that are apart,
// side by side or overlapping, amounts, and values that change.
#include "arena.hpp"
#include "said.hpp"
#include "zxmd.h"
#include "zxt.h"

namespace {

using zx::fuzz::Arena;
using zx::fuzz::Edge;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::kBack;
using zx::fuzz::kFarthest;
using zx::fuzz::kFront;
using zx::fuzz::require;

std::int32_t plain_switch(std::uint8_t* buf1, std::uint8_t* buf2, std::size_t size) {
    if (size > 1024) {
        return -2;
    }
    const std::vector<std::uint8_t> scratch(buf1, buf1 + size);
    const std::vector<std::uint8_t> other(buf2, buf2 + size);
    std::copy(other.begin(), other.end(), buf1);
    std::copy(scratch.begin(), scratch.end(), buf2);
    return 0;
}

void check_switch(Arena& arena, std::size_t size, std::ptrdiff_t distance, Edge edge) {
    arena.compare(arena.place(size, size, distance, edge), "two buffers",
                  [&](std::uint8_t* buf1, std::uint8_t* buf2, bool plainly) {
                      return plainly ? plain_switch(buf1, buf2, size)
                                     : zxt_innerapi_bufSwitch(buf1, buf2,
                                                              static_cast<std::uint32_t>(size));
                  });
}

std::size_t magnitude(std::ptrdiff_t offset) {
    return static_cast<std::size_t>(std::abs(offset));
}

std::int32_t plain_offset(std::uint8_t* buf, std::ptrdiff_t offset, std::size_t len) {
    const std::size_t by = magnitude(offset);
    std::vector<std::uint8_t> copy(by + len, 0);
    std::copy_n(buf + (offset > 0 ? by : 0), len, copy.data() + (offset > 0 ? 0 : by));
    std::copy(copy.begin(), copy.end(), buf);
    return 0;
}

void check_offset(Arena& arena, std::ptrdiff_t offset, std::size_t len, Edge edge) {
    arena.compare(arena.place(magnitude(offset) + len, 0, 0, edge), "content that moves",
                  [&](std::uint8_t* buf, std::uint8_t*, bool plainly) {
                      return plainly
                                 ? plain_offset(buf, offset, len)
                                 : zxt_innerapi_bufOffset(buf, static_cast<std::int32_t>(offset),
                                                          static_cast<std::int32_t>(len));
                  });
}

// Moves that would leave any buffer are refused.
void check_refused() {
    zxlog_api_setLoglevel(1);
    for (const auto& [offset, len] : {std::pair{2, -1}, {INT32_MIN, 4}, {1, INT32_MAX}}) {
        std::uint8_t buf[] = "abcdefgh";
        zx::fuzz::Lines lines{"ZXCOMMON_INNER", 1};
        lines.say(1, "Content of %d bytes cannot move by %d", len, offset);
        zx::fuzz::take_said();
        require(zxt_innerapi_bufOffset(buf, offset, len) == -1 &&
                    std::memcmp(buf, "abcdefgh", sizeof buf) == 0 &&
                    zx::fuzz::take_said() == lines.said,
                "content that does not move");
    }
}

// An amount by the table of thresholds.
std::string plain_amount(std::uint64_t value, bool bits) {
    std::uint64_t whole = value;
    std::uint64_t fraction = 0;
    std::string unit;
    if (value >= 1073741824) {
        whole = value >> 30U;
        fraction = (value & 1073741823U) >> 20U;
        unit = "G";
    } else if (value >= 1048576) {
        whole = value >> 20U;
        fraction = (value & 1048575U) >> 10U;
        unit = "M";
    } else if (value >= 1024) {
        whole = value >> 10U;
        fraction = value & 1023U;
        unit = "K";
    }
    std::string text = std::to_string(whole);
    if (fraction > 0) {
        text += '.' + std::to_string(100 + fraction * 100 / 1024).substr(1);
    }
    return text + unit + (bits ? 'b' : 'B');
}

void check_amount(std::uint64_t value) {
    static GuardedMemory out(ZXT_UNIT_SIZE);
    for (const std::uint8_t flag : {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{2}}) {
        const bool bits = flag != 0;
        require(zxt_innerapi_bit2str_64(out.old_text(ZXT_UNIT_SIZE), value, flag) ==
                    plain_amount(value, bits),
                "an amount");
        const auto part = static_cast<std::uint32_t>(value);
        require(zxt_innerapi_bit2str_32(out.old_text(ZXT_UNIT_SIZE), part, flag) ==
                    plain_amount(part, bits),
                "an amount of 32 bits");
    }
}

// Random bytes without a NUL, random ones over a part of them, and a random number.
void check_random(std::uint32_t len, std::uint32_t kept) {
    static GuardedMemory out(4096);
    std::uint8_t* const buf = out.fill(len, 0);
    require(zxmd_api_randomStr(buf, len) == len, "as many random bytes");
    require(std::find(buf, buf + len, 0) == buf + len, "no NUL inside");
    const std::vector<std::uint8_t> before(buf, buf + std::min(len, kept));
    zxmd_api_randomInsert(buf, len, kept);
    require(std::equal(before.begin(), before.end(), buf), "the first bytes stay");
    require(zxmd_api_randomU32(kept, kept + len) - kept <= len, "a random number");
}

// A value that changes, and what the caller keeps about it.
struct Watched {
    std::int8_t last = 0;
    std::uint8_t counter = 0;
    zx::fuzz::Lines lines{"ZXCOMMON_INNER", zxlog_api_getLoglevel()};

    std::int32_t sees(std::int8_t value) {
        if (value == last) {
            counter = 0;
            return 0;
        }
        if (++counter > 5) {
            lines.say(2, "[a] data change(%d->%d)  from  b to c ", value, last);
            counter = 0;
            return 1;
        }
        last = value;
        return 0;
    }
};

}  // namespace

// Runs what seeds would miss.
void zx_fuzz_sweep() {
    zx::fuzz::log_to_nowhere(0);
    Arena arena(4096);
    for (std::ptrdiff_t distance = -kFarthest; distance <= kFarthest; ++distance) {
        for (const std::size_t size : {0U, 1U, 15U, 64U, 255U, 300U, 1024U, 1025U}) {
            check_switch(arena, size, distance, distance % 2 == 0 ? kFront : kBack);
        }
        for (const std::size_t len : {0U, 1U, 7U, 64U, 300U, 1000U}) {
            check_offset(arena, distance, len, kFront);
            check_offset(arena, distance, len, kBack);
        }
    }
    for (unsigned bit = 0; bit < 64; ++bit) {
        const std::uint64_t value = std::uint64_t{1} << bit;
        for (const std::uint64_t near : {value - 1, value, value + 1, 3 * value / 2}) {
            check_amount(near);
        }
    }
    check_amount(UINT64_MAX);
    for (std::uint32_t len = 0; len < 40; ++len) {
        check_random(len, 10);
    }
    check_refused();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Arena arena(4096);

    Input input({data, std::min<std::size_t>(size, 2048)});
    zx::fuzz::log_to_nowhere(input.take<std::uint8_t>());
    const Edge edge{input.take_below(2) != 0, 0};
    const auto distance = input.take<std::int16_t>() % 1100;
    const std::size_t length = input.take<std::uint16_t>() % 1100;
    check_switch(arena, length, distance, edge);
    check_offset(arena, distance, length, edge);
    check_amount(input.take<std::uint64_t>() >> input.take_below(64));
    check_random(static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(size));

    zx::fuzz::take_said();
    Watched ours, plain;
    ours.counter = plain.counter = input.take<std::uint8_t>();
    for (const std::uint8_t byte : input.rest()) {
        const auto value = static_cast<std::int8_t>(byte);
        require(zxt_api_isDatatypeChange(&value, &ours.last, &ours.counter, "a", "b", "c") ==
                        plain.sees(value) &&
                    ours.last == plain.last && ours.counter == plain.counter,
                "a value that changes");
    }
    require(zx::fuzz::take_said() == plain.lines.said, "the lines of a value that flaps");
    return 0;
}
