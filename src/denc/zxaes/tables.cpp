#include "denc/zxaes/tables.hpp"

#include <bit>

namespace zx::aes {

namespace {

constexpr std::uint8_t multiply(std::uint8_t a, std::uint8_t b) {
    std::uint8_t product = 0;
    for (; b != 0; b >>= 1U, a = doubled(a)) {
        product ^= (b & 1U) != 0 ? a : std::uint8_t{0};
    }
    return product;
}

// FIPS 197, 5.1.1: the inverse of a byte, then an affine map. Each byte but 0 is a power of 3.
consteval Substitution make_substitution() {
    Substitution box{};
    std::uint8_t power = 1;
    std::uint8_t inverse = 1;
    do {
        power = multiply(power, 0x03);
        inverse = multiply(inverse, 0xF6);  // 0x03 times 0xF6 is 1
        box[power] = inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^
                     std::rotl(inverse, 3) ^ std::rotl(inverse, 4) ^ std::uint8_t{0x63};
    } while (power != 1);
    box[0] = 0x63;
    return box;
}

consteval Substitution invert(const Substitution& box) {
    Substitution inverse{};
    for (std::size_t i = 0; i < box.size(); ++i) {
        inverse[box[i]] = static_cast<std::uint8_t>(i);
    }
    return inverse;
}

// `factors`: for each row, what the top byte of a column is multiplied by.
consteval RoundTable make_round(const Substitution& box, std::array<std::uint8_t, 4> factors) {
    RoundTable table{};
    for (std::size_t i = 0; i < box.size(); ++i) {
        std::uint32_t column = 0;
        for (std::size_t row = 0; row < 4; ++row) {
            column |= std::uint32_t{multiply(box[i], factors[row])} << (8 * row);
        }
        for (std::size_t row = 0; row < 4; ++row) {
            table[row][i] = std::rotl(column, static_cast<int>(8 * row));
        }
    }
    return table;
}

}  // namespace

constexpr Substitution kSubstitution = make_substitution();
constexpr Substitution kInverseSubstitution = invert(kSubstitution);
constexpr RoundTable kRound = make_round(kSubstitution, {2, 1, 1, 3});
constexpr RoundTable kInverseRound = make_round(kInverseSubstitution, {14, 9, 13, 11});

static_assert(kSubstitution[0x53] == 0xED && kInverseSubstitution[0xED] == 0x53);

}  // namespace zx::aes
