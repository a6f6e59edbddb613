#include <endian.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "denc/apart.hpp"
#include "denc/zxdes/tables.hpp"
#include "internal/guard.hpp"
#include "zxdes.h"

namespace {

using zx::des::Halves;
using zx::des::kBoxes;

constexpr std::size_t kBlock = ZXDES_BLOCK_SIZE;
constexpr std::size_t kMaxKeys = 3;

// Blocks that are worked on at once: while one waits for its tables, the others go on.
constexpr std::size_t kTogether = 3;

// The round keys of one pass of DES or of three, in the order in which they are used.
struct Schedule {
    std::array<std::uint64_t, kMaxKeys * ZXDES_ROUNDS> keys;
    std::size_t rounds;
};

// A block is loaded as one word. Loaded byte by byte, plain text would be left on the stack.
std::uint64_t load_block(const std::uint8_t* at) {
    std::uint64_t block;
    std::memcpy(&block, at, sizeof block);
    return be64toh(block);
}

void store_block(std::uint8_t* at, std::uint64_t block) {
    block = htobe64(block);
    std::memcpy(at, &block, sizeof block);
}

// Rotates the two halves of a key, 28 bits each, to the left.
std::uint64_t rotate_halves(std::uint64_t halves, unsigned places) {
    constexpr std::uint64_t kLowest = 1U << 28U | 1U;
    constexpr std::uint64_t kAll = (std::uint64_t{1} << 56U) - 1;
    const std::uint64_t wrapped = kLowest * ((1U << places) - 1);
    return (halves << places & kAll & ~wrapped) | (halves >> (28 - places) & wrapped);
}

void fill_pass(std::uint64_t* pass, const std::uint8_t* key, bool decrypts) {
    std::uint64_t halves = zx::des::kKeyHalves(load_block(key));
    for (std::size_t round = 0; round < ZXDES_ROUNDS; ++round) {
        halves = rotate_halves(halves, LOOP_Table[round]);
        pass[decrypts ? ZXDES_ROUNDS - 1 - round : round] = zx::des::kRoundKey(halves);
    }
}

// One key makes one pass, two or three keys make three. With two keys the third pass uses the first
// one again.
void fill(Schedule& schedule, bool decrypts, const std::uint8_t* key, std::size_t keys) {
    const std::size_t passes = keys == 1 ? 1 : kMaxKeys;
    schedule.rounds = passes * ZXDES_ROUNDS;
    for (std::size_t i = 0; i < passes; ++i) {
        const std::size_t place = decrypts ? passes - 1 - i : i;
        const bool middle = i == 1;
        fill_pass(&schedule.keys[i * ZXDES_ROUNDS], key + place % keys * kBlock,
                  decrypts != middle);
    }
}

// What a round adds to the other half.
[[gnu::always_inline]] inline std::uint64_t cipher(std::uint64_t half, std::uint64_t key) {
    const std::uint64_t in = half ^ key;
    std::uint64_t out = 0;
    for (std::size_t i = 0; i < kBoxes.size(); ++i) {
        out ^= kBoxes[i][in >> (8 * i) & 0xFFU];
    }
    return out;
}

// Encrypts or decrypts kCount blocks. It is not inlined, so that the halves can use all registers.
template <std::size_t kCount>
[[gnu::noinline]] void crypt_group(const Schedule& schedule, const std::uint8_t* in,
                                   std::uint8_t* out) {
    zx::Wiped<std::array<Halves, kCount>> group;
    for (std::size_t i = 0; i < kCount; ++i) {
        (*group)[i] = zx::des::permute_initially(load_block(in + i * kBlock));
    }
    const std::uint64_t* key = schedule.keys.data();
    const std::uint64_t* const end = key + schedule.rounds;
    do {  // between passes the final permutation and the initial one cancel out
        const std::uint64_t* const last = key + ZXDES_ROUNDS;
        do {
            for (Halves& halves : *group) {
                halves.left ^= cipher(halves.right, key[0]);
            }
            for (Halves& halves : *group) {
                halves.right ^= cipher(halves.left, key[1]);
            }
            key += 2;
        } while (key != last);
        for (Halves& halves : *group) {
            std::swap(halves.left, halves.right);
        }
    } while (key != end);
    for (std::size_t i = 0; i < kCount; ++i) {
        store_block(out + i * kBlock, zx::des::permute_finally((*group)[i]));
    }
}

template <std::size_t kCount>
void crypt(const Schedule& schedule, const std::uint8_t* in, std::uint8_t* out,
           std::size_t blocks) {
    for (; blocks != 0; blocks -= kCount, in += kCount * kBlock, out += kCount * kBlock) {
        crypt_group<kCount>(schedule, in, out);
    }
}

}  // namespace

extern "C" int32_t zxdes_api_done(uint8_t direction, const uint8_t* in, uint8_t* out, uint32_t len,
                                  const uint8_t* key, uint8_t keylen) {
    if (in == nullptr || out == nullptr || key == nullptr || len == 0 || keylen < kBlock ||
        len % kBlock != 0) {
        return 0;
    }
    zx::Wiped<Schedule> schedule;
    fill(*schedule, direction != 0, key, std::min(keylen / kBlock, kMaxKeys));

    // Works on several blocks at once, unless one block would read what another one writes.
    const bool apart = zx::is_apart(in, out, kTogether * kBlock);
    const std::size_t blocks = len / kBlock;
    const std::size_t grouped = apart ? blocks - blocks % kTogether : 0;
    crypt<kTogether>(*schedule, in, out, grouped);
    crypt<1>(*schedule, in + grouped * kBlock, out + grouped * kBlock, blocks - grouped);
    return 1;
}
