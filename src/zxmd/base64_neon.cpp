#include "zxmd/base64.hpp"

#ifdef __aarch64__
#include <arm_neon.h>

namespace {

constexpr std::size_t kTable = sizeof(uint8x16x4_t);  // 64 entries, which one instruction looks up

uint8x16x4_t table_at(const void* at) {
    return vld1q_u8_x4(static_cast<const std::uint8_t*>(at));
}

// The values of 16 characters. Each table sets only the values of the characters that it contains.
template <typename... Tables>
[[gnu::always_inline]] inline uint8x16_t look_up(uint8x16_t text, const Tables&... tables) {
    uint8x16_t values = vdupq_n_u8(63);
    ((values = vqtbx4q_u8(values, tables, text), text -= kTable), ...);
    return values;
}

// Decodes 64 characters at a time, and returns how many these were. Characters beyond the tables
// have the value 63.
template <typename... Tables>
[[gnu::always_inline]] inline std::size_t decode_by(const char* text, std::size_t size,
                                                    std::uint8_t* out, const Tables&... tables) {
    std::size_t done = 0;
    for (; size - done >= 64; done += 64, out += 48) {
        // Vector i has character i of each group.
        const uint8x16x4_t in = vld4q_u8(reinterpret_cast<const std::uint8_t*>(text + done));
        const uint8x16_t v0 = look_up(in.val[0], tables...);
        const uint8x16_t v1 = look_up(in.val[1], tables...);
        const uint8x16_t v2 = look_up(in.val[2], tables...);
        const uint8x16_t v3 = look_up(in.val[3], tables...);
        const uint8x16x3_t bytes{v0 << 2 | v1 >> 4, v1 << 4 | v2 >> 2, v2 << 6 | v3};
        vst3q_u8(out, bytes);
    }
    return done;
}

bool is_ascii(const zx::md::Values& values) {
    uint8x16_t lowest = vdupq_n_u8(63);
    for (std::size_t i = 128; i < values.size(); i += 16) {
        lowest = vminq_u8(lowest, vld1q_u8(&values[i]));
    }
    return vminvq_u8(lowest) == 63;
}

}  // namespace

std::size_t zx::md::encode_neon(const char* alphabet, const std::uint8_t* in, std::size_t size,
                                char* out) {
    const uint8x16x4_t table = table_at(alphabet);
    std::size_t done = 0;
    for (; size - done > 48; done += 48) {
        const auto [b0, b1, b2] = vld3q_u8(in + done).val;  // vector i has byte i of each group
        const uint8x16_t numbers[] = {b0 >> 2, (b0 << 4 | b1 >> 4) & 63, (b1 << 2 | b2 >> 6) & 63,
                                      b2 & 63};
        uint8x16x4_t text;
        for (std::size_t i = 0; i < 4; ++i) {
            text.val[i] = vqtbl4q_u8(table, numbers[i]);
        }
        vst4q_u8(reinterpret_cast<std::uint8_t*>(out + done / 3 * 4), text);
    }
    return encode_rest(alphabet, in, size, out, done);
}

void zx::md::decode_neon(const Values& values, const char* text, std::size_t size,
                         std::uint8_t* out) {
    std::size_t done = 0;
    if (size >= 64) {
        const uint8x16x4_t quarter0 = table_at(&values[0]);
        const uint8x16x4_t quarter1 = table_at(&values[64]);
        const uint8x16x4_t quarter2 = table_at(&values[128]);
        const uint8x16x4_t quarter3 = table_at(&values[192]);
        done = is_ascii(values)
                   ? decode_by(text, size, out, quarter0, quarter1)
                   : decode_by(text, size, out, quarter0, quarter1, quarter2, quarter3);
    }
    decode_rest(values, text, size, out, done);
}
#endif
