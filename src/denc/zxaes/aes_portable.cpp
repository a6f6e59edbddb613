// AES by tables.
#include <endian.h>

#include <cstring>

#include "denc/zxaes/cipher.hpp"
#include "denc/zxaes/tables.hpp"

namespace {

using namespace zx::aes;

// Four columns, each with its top row in the lowest byte.
struct Block {
    std::uint32_t c0, c1, c2, c3;
};

// From the columns to their bytes in memory, or back.
void in_memory_order(Block& block) {
    for (std::uint32_t* const column : {&block.c0, &block.c1, &block.c2, &block.c3}) {
        *column = htole32(*column);
    }
}

Block load(const void* at) {
    Block block;
    std::memcpy(&block, at, sizeof block);
    in_memory_order(block);
    return block;
}

void store(std::uint8_t* at, Block block) {
    in_memory_order(block);
    std::memcpy(at, &block, sizeof block);
}

Block operator^(const Block& a, const Block& b) {
    return {a.c0 ^ b.c0, a.c1 ^ b.c1, a.c2 ^ b.c2, a.c3 ^ b.c3};
}

// Makes a column of the next state from the columns that its rows come from.
[[gnu::always_inline]] inline std::uint32_t mixed(const RoundTable& table, std::uint32_t row0,
                                                  std::uint32_t row1, std::uint32_t row2,
                                                  std::uint32_t row3) {
    return table[0][byte_of(row0, 0)] ^ table[1][byte_of(row1, 1)] ^ table[2][byte_of(row2, 2)] ^
           table[3][byte_of(row3, 3)];
}

// The same in the last round, which mixes no columns.
[[gnu::always_inline]] inline std::uint32_t joined(const Substitution& box, std::uint32_t row0,
                                                   std::uint32_t row1, std::uint32_t row2,
                                                   std::uint32_t row3) {
    return std::uint32_t{box[byte_of(row0, 0)]} | std::uint32_t{box[byte_of(row1, 1)]} << 8U |
           std::uint32_t{box[byte_of(row2, 2)]} << 16U |
           std::uint32_t{box[byte_of(row3, 3)]} << 24U;
}

// Rows move to the left when encrypting, to the right when decrypting.
template <Way way, auto Column, typename Table>
[[gnu::always_inline]] inline Block shifted(const Table& table, const Block& s) {
    if constexpr (way == Way::encrypt) {
        return {Column(table, s.c0, s.c1, s.c2, s.c3), Column(table, s.c1, s.c2, s.c3, s.c0),
                Column(table, s.c2, s.c3, s.c0, s.c1), Column(table, s.c3, s.c0, s.c1, s.c2)};
    } else {
        return {Column(table, s.c0, s.c3, s.c2, s.c1), Column(table, s.c1, s.c0, s.c3, s.c2),
                Column(table, s.c2, s.c1, s.c0, s.c3), Column(table, s.c3, s.c2, s.c1, s.c0)};
    }
}

template <Way way>
[[gnu::always_inline]] inline Block transform(const Work& work, Block state) {
    constexpr bool encrypt = way == Way::encrypt;
    const std::uint32_t* key = work.keys;
    const std::uint32_t* const last = key + kBlockWords * work.rounds;
    state = state ^ load(key);
    for (key += kBlockWords; key != last; key += kBlockWords) {
        state = shifted<way, mixed>(encrypt ? kRound : kInverseRound, state) ^ load(key);
    }
    return shifted<way, joined>(encrypt ? kSubstitution : kInverseSubstitution, state) ^ load(last);
}

struct ByTables {
    template <Mode mode, Way way>
    static void run(const Work& work) {
        const std::uint8_t* in = work.in;
        std::uint8_t* out = work.out;
        for (std::size_t left = work.blocks; left != 0;
             --left, in += kBlockSize, out += kBlockSize) {
            if constexpr (mode == Mode::ecb) {
                store(out, transform<way>(work, load(in)));
            } else if constexpr (mode == Mode::cbc && way == Way::encrypt) {
                const Block result = transform<Way::encrypt>(work, load(in) ^ load(work.iv));
                store(work.iv, result);
                store(out, result);
            } else {
                constexpr bool cbc = mode == Mode::cbc;
                const Block pad = transform<Way::decrypt>(work, load(cbc ? in : work.iv));
                const Block text = load(in);
                const Block result = pad ^ (cbc ? load(work.iv) : text);
                store(work.iv, way == Way::encrypt ? result : text);
                store(out, result);
            }
        }
    }
};

std::uint32_t substitute(std::uint32_t word) {
    return joined(kSubstitution, word, word, word, word);
}

void unmix(std::uint32_t* words, std::size_t count) {
    for (std::uint32_t* const end = words + count; words != end; ++words) {
        const std::uint32_t word = substitute(le32toh(*words));  // the table undoes this
        *words = htole32(mixed(kInverseRound, word, word, word, word));
    }
}

}  // namespace

constexpr Cipher zx::aes::kByTables = {crypt_by<ByTables>, substitute, unmix};
