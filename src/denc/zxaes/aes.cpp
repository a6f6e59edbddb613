#include "zxaes.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "denc/apart.hpp"
#include "denc/zxaes/cipher.hpp"
#include "internal/args.hpp"
#include "internal/guard.hpp"
#include "internal/log.hpp"

static_assert(ZXAES_BLOCK_SIZE == zx::aes::kBlockSize);
static_assert(ZXAES_CALL_LIMIT == 202 * ZXAES_BLOCK_SIZE);

namespace {

using zx::aes::kBlockSize;
using zx::aes::Mode;
using zx::aes::Way;

constexpr char kTag[] = "zxaes";

// From the number in the interface.
Way way_of(std::uint32_t direction) {
    return direction == ZXAES_DECRYPT ? Way::decrypt : Way::encrypt;
}

bool has_key(const zxaes_ctt& ctx) {
    return ctx.roundKeys != nullptr && (ctx.rounds == 10 || ctx.rounds == 12 || ctx.rounds == 14);
}

// The key set-up and the rounds leave values on the stack that the compiler stored there. This
// frame covers the same place.
[[gnu::noinline]] void wipe_frames_below() {
    zx::Wiped<std::array<std::uint8_t, 512>> frame;
}

// Works on several blocks at once, unless one block would read what another one writes.
void crypt(const zxaes_ctt& ctx, Mode mode, Way way, std::uint8_t* iv, const std::uint8_t* in,
           std::uint8_t* out, std::size_t blocks) {
    const std::size_t step = zx::is_apart(in, out, zx::aes::kTogether * kBlockSize) ? blocks : 1;
    const zx::aes::Cipher& cipher = zx::aes::cipher();
    for (std::size_t done = 0; done < blocks; done += step) {
        const std::size_t at = done * kBlockSize;
        cipher.crypt(
            mode, way,
            {ctx.roundKeys, static_cast<unsigned>(ctx.rounds), iv, in + at, out + at, step});
    }
    wipe_frames_below();
}

// The feedback mode, byte by byte. Whole blocks are done at once, unless a byte of a block would
// read what another byte of that block writes.
void feed_back(const zxaes_ctt& ctx, Way way, std::uint32_t& offset, std::uint8_t* iv,
               const std::uint8_t* in, std::uint8_t* out, std::size_t size) {
    const bool apart = zx::is_apart(in, out, kBlockSize);
    const std::uint8_t* const end = in + size;
    while (in != end) {
        if (const auto left = static_cast<std::size_t>(end - in);
            apart && offset == 0 && left >= kBlockSize) {
            const std::size_t blocks = left / kBlockSize;
            crypt(ctx, Mode::cfb, way, iv, in, out, blocks);
            in += blocks * kBlockSize;
            out += blocks * kBlockSize;
            continue;
        }
        if (offset == 0) {
            crypt(ctx, Mode::ecb, Way::decrypt, nullptr, iv, iv, 1);
        }
        std::uint8_t& pad = iv[offset];
        const std::uint8_t text = *in++;
        const auto result = static_cast<std::uint8_t>(text ^ pad);
        pad = way == Way::encrypt ? result : text;
        *out++ = result;
        offset = (offset + 1) % kBlockSize;
    }
}

}  // namespace

extern "C" int32_t zxaes_api_done(uint32_t direction, uint32_t mode, const uint8_t* in,
                                  uint8_t* out, uint32_t len, const uint8_t* key, uint8_t keylen) {
    if (!ZX_ARE_GIVEN({in, "bufin"}, {out, "bufout"}, {key, "key"})) {
        return 0;
    }
    if (keylen != 32 && keylen != 16 && keylen != 24) {
        ZX_LOG(error, "Keylen(%d) must be 32,16 or 24", static_cast<int>(keylen));
        return 0;
    }
    if (len % kBlockSize != 0) {
        ZX_LOG(error, "datalen(%d) must be 16*N", static_cast<int>(len));
        return 0;
    }
    if (direction > ZXAES_DECRYPT) {
        return 1;
    }
    zx::Wiped<zxaes_ctt> ctx;
    const bool inverse = direction == ZXAES_DECRYPT && (mode == ZXAES_ECB || mode == ZXAES_CBC);
    (inverse ? zxaes_innerapi_setDecKey : zxaes_innerapi_setEncKey)(&*ctx, key, keylen * 8U);
    zx::Wiped<std::array<std::uint8_t, kBlockSize>> iv;
    iv->fill(0);
    if (mode == ZXAES_ECB || mode == ZXAES_CBC) {
        crypt(*ctx, mode == ZXAES_ECB ? Mode::ecb : Mode::cbc, way_of(direction), iv->data(), in,
              out, len / kBlockSize);
    } else {
        std::uint32_t offset = 0;
        feed_back(*ctx, way_of(direction), offset, iv->data(), in, out, len);
    }
    return 1;
}

extern "C" void zxaes_innerapi_cryptECB(zxaes_ctt* ctx, uint32_t mode, const uint8_t in16[16],
                                        uint8_t out16[16]) {
    if (ctx == nullptr) {
        std::printf("%s %d zx_null\n", __func__, __LINE__);
        return;
    }
    if (!ZX_ARE_GIVEN({in16, "in16"}, {out16, "out16"})) {
        return;
    }
    if (has_key(*ctx)) {
        crypt(*ctx, Mode::ecb, way_of(mode), nullptr, in16, out16, 1);
    }
}

extern "C" void zxaes_innerapi_cryptCBC(zxaes_ctt* ctx, uint32_t mode, uint32_t len,
                                        uint8_t iv16[16], const uint8_t* in, uint8_t* out) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"}, {iv16, "iv16"}, {in, "in"}, {out, "out"})) {
        return;
    }
    if (has_key(*ctx)) {
        crypt(*ctx, Mode::cbc, way_of(mode), iv16, in, out,
              std::min<std::uint32_t>(len, ZXAES_CALL_LIMIT) / kBlockSize);
    }
}

extern "C" void zxaes_innerapi_cryptCFB128(zxaes_ctt* ctx, uint32_t mode, uint32_t len,
                                           uint32_t* ivOffset, uint8_t iv16[16], const uint8_t* in,
                                           uint8_t* out) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"}, {ivOffset, "ivOffset"}, {iv16, "iv16"}, {in, "in"},
                      {out, "out"})) {
        return;
    }
    if (*ivOffset >= kBlockSize) {
        std::printf("%s %d n:%d too big\n", __func__, __LINE__, static_cast<int>(*ivOffset));
        return;
    }
    if (has_key(*ctx)) {
        feed_back(*ctx, way_of(mode), *ivOffset, iv16, in, out,
                  std::min<std::uint32_t>(len, ZXAES_CALL_LIMIT));
    }
}
