// DES on words instead of single bits: what tables.cpp derives from the tables of the standard.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace zx::des {

// A permutation or choice of bits. For each nibble of the input it holds the nibble's part in the
// output.
template <std::size_t kNibbles>
class NibbleMap {
public:
    template <typename Function>
    explicit constexpr NibbleMap(Function permute) {
        for (std::size_t i = 0; i < kNibbles; ++i) {
            for (std::uint64_t nibble = 0; nibble < 16; ++nibble) {
                parts_[i][nibble] = permute(nibble << (4 * i));
            }
        }
    }

    constexpr std::uint64_t operator()(std::uint64_t in) const {
        std::uint64_t out = 0;
        for (const auto& part : parts_) {
            out |= part[in & 15U];
            in >>= 4U;
        }
        return out;
    }

private:
    std::array<std::array<std::uint64_t, 16>, kNibbles> parts_{};
};

// The halves of a block between the initial and the final permutation, expanded: each S-box has a
// byte whose lower six bits are the input of the box, and whose upper two bits are zero. From the
// top, the bytes belong to boxes 1, 3, 5, 7, 2, 4, 6, 8. The results of the boxes are kept in the
// same form, so a round does not need to expand a half.
struct Halves {
    std::uint64_t left;
    std::uint64_t right;
};

// Expands half a block that was rotated left by one, so that the six bits of a box are next to each
// other. Boxes of even number have the lower six bits of a byte. Those of the other boxes begin
// four bits higher, so the half is rotated right by four for them.
constexpr std::uint64_t expand(std::uint32_t half) {
    return (std::uint64_t{std::rotr(half, 4)} << 32U | half) & 0x3F3F3F3F3F3F3F3F;
}

constexpr std::uint32_t collapse(std::uint64_t expanded) {
    return std::rotl(static_cast<std::uint32_t>(expanded >> 32U), 4) |
           static_cast<std::uint32_t>(expanded);
}

// Exchanges the bits `mask` of `low` with those of `high` that are `shift` places higher.
constexpr void exchange(std::uint32_t& high, std::uint32_t& low, unsigned shift,
                        std::uint32_t mask) {
    const std::uint32_t change = ((high >> shift) ^ low) & mask;
    low ^= change;
    high ^= change << shift;
}

// The initial permutation of a block, as a big-endian number.
constexpr Halves permute_initially(std::uint64_t block) {
    auto left = static_cast<std::uint32_t>(block >> 32U);
    auto right = static_cast<std::uint32_t>(block);
    exchange(left, right, 4, 0x0F0F0F0F);
    exchange(left, right, 16, 0x0000FFFF);
    exchange(right, left, 2, 0x33333333);
    exchange(right, left, 8, 0x00FF00FF);
    right = std::rotl(right, 1);
    exchange(left, right, 0, 0xAAAAAAAA);
    left = std::rotl(left, 1);
    return {expand(left), expand(right)};
}

// The inverse: the same steps in the opposite order.
constexpr std::uint64_t permute_finally(const Halves& halves) {
    std::uint32_t left = std::rotr(collapse(halves.left), 1);
    std::uint32_t right = collapse(halves.right);
    exchange(left, right, 0, 0xAAAAAAAA);
    right = std::rotr(right, 1);
    exchange(right, left, 8, 0x00FF00FF);
    exchange(right, left, 2, 0x33333333);
    exchange(left, right, 16, 0x0000FFFF);
    exchange(left, right, 4, 0x0F0F0F0F);
    return std::uint64_t{left} << 32U | right;
}

// S-box, permutation P and expansion in one, for each byte of an expanded half from the lowest one
// on.
using Boxes = std::array<std::array<std::uint64_t, 64>, 8>;
extern const Boxes kBoxes;

// Turns the eight bytes of a key into two halves of 28 bits, which are rotated from round to round.
extern const NibbleMap<16> kKeyHalves;

// Turns the two halves of a key into the key of a round, with six bits to a byte as in an expanded
// half of a block.
extern const NibbleMap<14> kRoundKey;

}  // namespace zx::des
