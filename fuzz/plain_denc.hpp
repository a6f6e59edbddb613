// Checksums, digests and AES as their standards describe them, a bit, a byte or a block at a time.
// The fast implementations of the library are compared with these.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "sha1.h"
#include "support.hpp"

namespace zx::plain {

using fuzz::Bytes;

// The register after one more byte, with the most significant bit first, in the upper bits.
constexpr std::uint32_t crc_step(std::uint32_t crc, std::uint8_t byte, std::uint32_t polynomial) {
    crc ^= static_cast<std::uint32_t>(byte) << 24U;
    for (int bit = 0; bit < 8; ++bit) {
        crc = crc << 1U ^ ((crc >> 31U) != 0 ? polynomial : 0);
    }
    return crc;
}

// The same with the least significant bit first, in the lower bits.
constexpr std::uint32_t crc_step_reflected(std::uint32_t crc, std::uint8_t byte,
                                           std::uint32_t polynomial) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
        crc = crc >> 1U ^ ((crc & 1U) != 0 ? polynomial : 0);
    }
    return crc;
}

// The CRCs of a message, updated piece by piece.
struct Crcs {
    std::uint32_t mpeg2 = 0xFFFFFFFF;
    std::uint32_t xmodem = 0;
    std::uint32_t modbus = 0xFFFF;

    void add(std::uint8_t byte) {
        mpeg2 = crc_step(mpeg2, byte, 0x04C11DB7);
        xmodem = crc_step(xmodem, byte, 0x10210000);
        modbus = crc_step_reflected(modbus, byte, 0xA001);
    }
};

using Md5Words = std::array<std::uint32_t, 4>;

// RFC 1321.
inline Md5Words md5(Bytes message) {
    static const std::array<std::uint32_t, 64> kSines = [] {
        std::array<std::uint32_t, 64> sines{};
        for (std::size_t i = 0; i < 64; ++i) {
            sines[i] = static_cast<std::uint32_t>(
                std::floor(std::fabs(std::sin(static_cast<double>(i + 1))) * 4294967296.0));
        }
        return sines;
    }();
    constexpr int kShifts[4][4] = {
        {7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    std::vector<std::uint8_t> padded(message.begin(), message.end());
    padded.push_back(0x80);
    while (padded.size() % 64 != 56) {
        padded.push_back(0);
    }
    for (std::size_t i = 0; i < 8; ++i) {
        padded.push_back(static_cast<std::uint8_t>(8 * message.size() >> 8 * i));
    }
    Md5Words words{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    for (std::size_t at = 0; at < padded.size(); at += 64) {
        std::uint32_t block[16]{};
        for (std::size_t i = 0; i < sizeof block; ++i) {
            block[i / 4] |= std::uint32_t{padded[at + i]} << 8 * (i % 4);
        }
        auto [a, b, c, d] = words;
        for (std::size_t i = 0; i < 64; ++i) {
            const std::size_t round = i / 16;
            const std::uint32_t mixed = round == 0   ? (b & c) | (~b & d)
                                        : round == 1 ? (d & b) | (~d & c)
                                        : round == 2 ? b ^ c ^ d
                                                     : c ^ (b | ~d);
            const std::size_t from[] = {i, 5 * i + 1, 3 * i + 5, 7 * i};
            const std::uint32_t sum = a + mixed + kSines[i] + block[from[round] % 16];
            a = d;
            d = c;
            c = b;
            b += std::rotl(sum, kShifts[round][i % 4]);
        }
        words = {words[0] + a, words[1] + b, words[2] + c, words[3] + d};
    }
    return words;
}

// RFC 3174, on the library's context, one byte at a time.
inline void sha1_block(SHA1Context& context) {
    constexpr std::uint32_t kConstants[] = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC, 0xCA62C1D6};
    std::uint32_t w[80];
    for (std::size_t i = 0; i < 80; ++i) {
        const std::uint8_t* const at = context.Message_Block + 4 * (i % 16);
        w[i] = i < 16 ? std::uint32_t{at[0]} << 24U | std::uint32_t{at[1]} << 16U |
                            std::uint32_t{at[2]} << 8U | std::uint32_t{at[3]}
                      : std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
    }
    auto& hash = context.Intermediate_Hash;
    std::uint32_t a = hash[0], b = hash[1], c = hash[2], d = hash[3], e = hash[4];
    for (std::size_t i = 0; i < 80; ++i) {
        const std::uint32_t mixed = i < 20              ? (b & c) | (~b & d)
                                    : i >= 40 && i < 60 ? (b & c) | (b & d) | (c & d)
                                                        : b ^ c ^ d;
        const std::uint32_t sum = std::rotl(a, 5) + mixed + e + w[i] + kConstants[i / 20];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = sum;
    }
    const std::uint32_t sums[] = {a, b, c, d, e};
    for (std::size_t i = 0; i < 5; ++i) {
        hash[i] += sums[i];
    }
    context.Message_Block_Index = 0;
}

inline void sha1_input(SHA1Context& context, Bytes bytes) {
    if (context.Computed != 0 && !bytes.empty()) {
        context.Corrupted = 1;
    }
    for (const std::uint8_t byte : bytes) {
        if (context.Corrupted != 0) {
            return;
        }
        context.Message_Block[context.Message_Block_Index++] = byte;
        context.Length_Low += 8;
        context.Length_High += context.Length_Low == 0 ? 1 : 0;
        context.Corrupted = context.Length_Low == 0 && context.Length_High == 0 ? 1 : 0;
        if (context.Message_Block_Index == 64) {
            sha1_block(context);
        }
    }
}

inline std::int32_t sha1_result(SHA1Context& context) {
    if (context.Corrupted != 0) {
        return 0;
    }
    if (context.Computed == 0) {
        const std::uint32_t length[] = {context.Length_High, context.Length_Low};
        std::uint8_t next = 0x80;
        do {
            context.Message_Block[context.Message_Block_Index++] = next;
            next = 0;
            if (context.Message_Block_Index == 64) {
                sha1_block(context);
            }
        } while (context.Message_Block_Index != 56);
        for (std::size_t i = 0; i < 8; ++i) {
            context.Message_Block[56 + i] =
                static_cast<std::uint8_t>(length[i / 4] >> (24 - 8 * (i % 4)));
        }
        sha1_block(context);
        context.Computed = 1;
    }
    return 1;
}

// FIPS 197, with the names of the standard.
class Aes {
public:
    using Block = std::array<std::uint8_t, 16>;

    explicit Aes(Bytes key) : rounds_(key.size() / 4 + 6) {
        keys_.assign(key.begin(), key.end());
        std::uint8_t rcon = 1;
        for (std::size_t i = key.size(); i < 16 * (rounds_ + 1); i += 4) {
            std::array<std::uint8_t, 4> word;
            std::copy_n(&keys_[i - 4], 4, word.begin());
            if (i % key.size() == 0) {
                std::rotate(word.begin(), word.begin() + 1, word.end());
            }
            if (i % key.size() == 0 || (key.size() == 32 && i % 32 == 16)) {
                for (std::uint8_t& byte : word) {
                    byte = tables().box[byte];
                }
            }
            if (i % key.size() == 0) {
                word[0] ^= rcon;
                rcon = product(rcon, 2);
            }
            for (std::size_t k = 0; k < 4; ++k) {
                keys_.push_back(keys_[i + k - key.size()] ^ word[k]);
            }
        }
    }

    // 5.1
    void encrypt(Block& state) const {
        add_round_key(state, 0);
        for (std::size_t round = 1; round <= rounds_; ++round) {
            substitute(state, tables().box);
            shift_rows(state, 1);
            if (round != rounds_) {
                mix_columns(state, {2, 3, 1, 1});
            }
            add_round_key(state, round);
        }
    }

    // 5.3
    void decrypt(Block& state) const {
        add_round_key(state, rounds_);
        for (std::size_t round = rounds_; round-- > 0;) {
            shift_rows(state, 3);
            substitute(state, tables().inverse);
            add_round_key(state, round);
            if (round != 0) {
                mix_columns(state, {14, 11, 13, 9});
            }
        }
    }

    // Makes the keystream of the feedback mode: the inverse rounds of 5.3.5, with the encryption
    // keys in the order of encryption.
    void scramble(Block& state) const {
        add_round_key(state, 0);
        for (std::size_t round = 1; round <= rounds_; ++round) {
            substitute(state, tables().inverse);
            shift_rows(state, 3);
            if (round != rounds_) {
                mix_columns(state, {14, 11, 13, 9});
            }
            add_round_key(state, round);
        }
    }

private:
    using Box = std::array<std::uint8_t, 256>;
    struct Tables {
        std::array<Box, 16> products{};  // indexed by the factor
        Box box{};
        Box inverse{};
    };

    static std::uint8_t product(unsigned a, unsigned b) {
        unsigned sum = 0;
        for (; b != 0; b >>= 1U, a = a << 1U ^ ((a & 0x80U) != 0 ? 0x11BU : 0U)) {
            sum ^= (b & 1U) != 0 ? a : 0U;
        }
        return static_cast<std::uint8_t>(sum);
    }

    static const Tables& tables() {
        static const Tables kTables = [] {
            Tables made;
            for (unsigned byte = 0; byte < 256; ++byte) {
                for (unsigned factor = 0; factor < 16; ++factor) {
                    made.products[factor][byte] = product(byte, factor);
                }
                unsigned inverse = 0;
                while (byte != 0 && product(byte, inverse) != 1) {
                    ++inverse;
                }
                const auto b = static_cast<std::uint8_t>(inverse);
                made.box[byte] = static_cast<std::uint8_t>(b ^ std::rotl(b, 1) ^ std::rotl(b, 2) ^
                                                           std::rotl(b, 3) ^ std::rotl(b, 4) ^ 99);
            }
            for (unsigned byte = 0; byte < 256; ++byte) {
                made.inverse[made.box[byte]] = static_cast<std::uint8_t>(byte);
            }
            return made;
        }();
        return kTables;
    }

    void add_round_key(Block& state, std::size_t round) const {
        for (std::size_t i = 0; i < 16; ++i) {
            state[i] ^= keys_[16 * round + i];
        }
    }

    static void substitute(Block& state, const Box& box) {
        for (std::uint8_t& byte : state) {
            byte = box[byte];
        }
    }

    // Rotates row r to the left by r times `places` columns.
    static void shift_rows(Block& state, std::size_t places) {
        const Block before = state;
        for (std::size_t i = 0; i < 16; ++i) {
            state[i] = before[(i + 4 * places * (i % 4)) % 16];
        }
    }

    static void mix_columns(Block& state, const std::array<std::uint8_t, 4>& factors) {
        const Block before = state;
        for (std::size_t i = 0; i < 16; ++i) {
            state[i] = 0;
            for (std::size_t k = 0; k < 4; ++k) {
                state[i] ^= tables().products[factors[k]][before[i / 4 * 4 + (i + k) % 4]];
            }
        }
    }

    std::size_t rounds_;
    std::vector<std::uint8_t> keys_;
};

}  // namespace zx::plain
