// Key schedules (FIPS 197, 5.2 and 5.3.5), made of words in the byte order of the memory.
#include <endian.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "denc/zxaes/cipher.hpp"
#include "denc/zxaes/tables.hpp"
#include "internal/args.hpp"
#include "zxaes.h"

namespace {

using namespace zx::aes;

constexpr char kTag[] = "zxaes";
constexpr std::uint32_t kWordBits = 32;

std::size_t words_of(const zxaes_ctt& ctx) {
    return kBlockWords * (static_cast<std::size_t>(ctx.rounds) + 1);
}

// Expands a key of 128, 192 or 256 bits into the context.
void expand(zxaes_ctt& ctx, const std::uint8_t* key, std::uint32_t bits) {
    const std::size_t key_words = bits / kWordBits;
    ctx.rounds = static_cast<std::int32_t>(key_words + 6);
    ctx.roundKeys = ctx.buffer;
    std::memcpy(ctx.buffer, key, bits / 8);

    const Cipher& by = cipher();
    std::uint8_t round_constant = 1;
    const std::uint32_t* const end = ctx.buffer + words_of(ctx);
    std::size_t turn = 0;  // the position of a word in its group of `key_words`
    for (std::uint32_t* to = ctx.buffer + key_words; to != end; ++to) {
        std::uint32_t word = le32toh(to[-1]);
        if (turn == 0) {
            word = by.substitute(std::rotr(word, 8)) ^ round_constant;
            round_constant = doubled(round_constant);
        } else if (turn == 4 && key_words == 8) {
            word = by.substitute(word);
        }
        *to = *(to - key_words) ^ htole32(word);
        turn = turn + 1 == key_words ? 0 : turn + 1;
    }
}

bool is_key_size(std::uint32_t bits) {
    return bits == 128 || bits == 192 || bits == 256;
}

}  // namespace

extern "C" void zxaes_innerapi_gentable(void) {}

extern "C" void zxaes_innerapi_setEncKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits) {
    if (ctx == nullptr) {
        std::printf("%s %d zx_null\n", __func__, __LINE__);
        return;
    }
    if (!ZX_ARE_GIVEN({key, "key"})) {
        return;
    }
    if (is_key_size(bits)) {
        expand(*ctx, key, bits);
    }
}

extern "C" void zxaes_innerapi_setDecKey(zxaes_ctt* ctx, const uint8_t* key, uint32_t bits) {
    if (ctx == nullptr) {
        std::printf("%s %d zx_null\n", __func__, __LINE__);
        return;
    }
    if (!ZX_ARE_GIVEN({key, "key"})) {
        return;
    }
    if (!is_key_size(bits)) {
        return;
    }
    expand(*ctx, key, bits);
    std::uint32_t* first = ctx->buffer;
    std::uint32_t* last = ctx->buffer + words_of(*ctx) - kBlockWords;
    cipher().unmix(first + kBlockWords, words_of(*ctx) - 2 * kBlockWords);
    for (; first < last; first += kBlockWords, last -= kBlockWords) {
        std::swap_ranges(first, first + kBlockWords, last);
    }
}
