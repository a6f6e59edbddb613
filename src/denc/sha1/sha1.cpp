#include "sha1.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "denc/sha1/sha1_blocks.hpp"
#include "internal/args.hpp"
#include "internal/bytes.hpp"
#include "internal/cpu.hpp"
#include "internal/guard.hpp"
#include "internal/log.hpp"
#include "shared/hex.hpp"

static_assert(offsetof(SHA1Context, Length_Low) == 20 && offsetof(SHA1Context, Length_High) == 24);
static_assert(offsetof(SHA1Context, Message_Block) == 28);
static_assert(offsetof(SHA1Context, Message_Block_Index) == 92);
static_assert(offsetof(SHA1Context, Computed) == 96 && offsetof(SHA1Context, Corrupted) == 100);
static_assert(sizeof(SHA1Context) == 104);

namespace {

constexpr char kTag[] = "SHA1";
constexpr std::size_t kLengthAt = SHA1_BLOCK_SIZE - 8;       // in the last block
constexpr std::uint64_t kTooLong = std::uint64_t{1} << 61U;  // in bytes: 2^64 bits

// AVX2 pays from two blocks on, because it prepares the words of a block during the rounds of
// another.
constexpr zx::Choice<zx::sha1::Process*> kProcesses[] = {
#if defined __x86_64__
    {zx::kSha, 0, zx::sha1::process_ni},
    {zx::kAvx2, 2, zx::sha1::process_avx2},
#elif defined __aarch64__
    {zx::kSha, 0, zx::sha1::process_armv8},
#endif
    {zx::kPortable, 0, zx::sha1::process_portable},
};

void process(zx::sha1::Words& hash, const std::uint8_t* blocks, std::size_t count) {
    zx::pick(kProcesses, count)(hash, blocks, count);
}

// False for an index outside the block.
bool is_index_valid(const SHA1Context& ctx) {
    return ctx.Message_Block_Index >= 0 && ctx.Message_Block_Index < SHA1_BLOCK_SIZE;
}

// Counts `size` more bytes. Returns how many of them belong to the message: all, or those up to and
// including the one that makes the count overflow.
std::size_t count_bytes(SHA1Context& ctx, std::size_t size) {
    const std::uint64_t bits = std::uint64_t{ctx.Length_High} << 32U | ctx.Length_Low;
    const std::uint64_t room = kTooLong - bits / 8;
    if (size >= room) {
        size = room;
        ctx.Corrupted = 1;
    }
    const std::uint64_t sum = bits + (std::uint64_t{size} << 3U);
    ctx.Length_Low = static_cast<std::uint32_t>(sum);
    ctx.Length_High = static_cast<std::uint32_t>(sum >> 32U);
    return size;
}

void append(SHA1Context& ctx, const std::uint8_t* bytes, std::size_t size) {
    if (ctx.Computed != 0 || ctx.Corrupted != 0 || !is_index_valid(ctx)) {
        ctx.Corrupted = 1;
        return;
    }
    size = count_bytes(ctx, size);
    if (ctx.Message_Block_Index != 0) {
        const auto waiting = static_cast<std::size_t>(ctx.Message_Block_Index);
        const std::size_t taken = std::min(size, SHA1_BLOCK_SIZE - waiting);
        std::memcpy(ctx.Message_Block + waiting, bytes, taken);
        ctx.Message_Block_Index = static_cast<int32_t>(waiting + taken);
        if (ctx.Message_Block_Index != SHA1_BLOCK_SIZE) {
            return;
        }
        SHA1ProcessMessageBlock(&ctx);
        bytes += taken;
        size -= taken;
    }
    const std::size_t rest = size % SHA1_BLOCK_SIZE;
    if (size != rest) {
        process(ctx.Intermediate_Hash, bytes, size / SHA1_BLOCK_SIZE);
    }
    std::memcpy(ctx.Message_Block, bytes + (size - rest), rest);
    ctx.Message_Block_Index = static_cast<int32_t>(rest);
}

}  // namespace

extern "C" void SHA1Reset(SHA1Context* ctx) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"})) {
        return;
    }
    constexpr zx::sha1::Words kInitial = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476,
                                          0xC3D2E1F0};
    std::memcpy(ctx->Intermediate_Hash, kInitial, sizeof kInitial);
    ctx->Length_Low = 0;
    ctx->Length_High = 0;
    ctx->Message_Block_Index = 0;
    ctx->Computed = 0;
    ctx->Corrupted = 0;
}

extern "C" void SHA1Input(SHA1Context* ctx, const uint8_t* bytes, uint32_t len) {
    if (len == 0) {
        return;
    }
    if (!ZX_ARE_GIVEN({ctx, "ctx"}, {bytes, "bytes"})) {
        return;
    }
    append(*ctx, bytes, len);
}

extern "C" int32_t SHA1Result(SHA1Context* ctx) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"})) {
        return 0;
    }
    if (ctx->Corrupted == 0 && ctx->Computed == 0) {
        SHA1PadMessage(ctx);
        explicit_bzero(ctx->Message_Block, sizeof ctx->Message_Block);
        ctx->Computed = 1;
    }
    return ctx->Corrupted == 0 ? 1 : 0;
}

extern "C" void SHA1PadMessage(SHA1Context* ctx) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"})) {
        return;
    }
    if (!is_index_valid(*ctx)) {
        ctx->Corrupted = 1;
        return;
    }
    const auto waiting = static_cast<std::size_t>(ctx->Message_Block_Index);
    std::uint8_t* const block = ctx->Message_Block;
    block[waiting] = 0x80;
    std::fill(block + waiting + 1, block + SHA1_BLOCK_SIZE, std::uint8_t{0});
    if (waiting >= kLengthAt) {
        SHA1ProcessMessageBlock(ctx);
        std::fill_n(block, kLengthAt, std::uint8_t{0});
    }
    zx::store_be32(block + kLengthAt, ctx->Length_High);
    zx::store_be32(block + kLengthAt + 4, ctx->Length_Low);
    SHA1ProcessMessageBlock(ctx);
}

extern "C" void SHA1ProcessMessageBlock(SHA1Context* ctx) {
    if (!ZX_ARE_GIVEN({ctx, "ctx"})) {
        return;
    }
    process(ctx->Intermediate_Hash, ctx->Message_Block, 1);
    ctx->Message_Block_Index = 0;
}

extern "C" char* sha1_api_hash(const char* text) {
    if (!ZX_ARE_GIVEN({text, "text"})) {
        return nullptr;
    }
    zx::Wiped<SHA1Context> ctx;
    SHA1Reset(&*ctx);
    append(*ctx, reinterpret_cast<const std::uint8_t*>(text), std::strlen(text));
    if (SHA1Result(&*ctx) == 0) {
        ZX_LOG(error, "SHA1 ERROR: Could not compute message digest");
        return nullptr;
    }
    constexpr std::size_t kTextSize = 128;
    auto* const hex = static_cast<char*>(std::calloc(1, kTextSize));
    if (hex == nullptr) {
        ZX_LOG_MALLOC("digest");
        return nullptr;
    }
    std::uint8_t bytes[sizeof ctx->Intermediate_Hash];
    for (std::size_t i = 0; i < SHA1_HASH_WORDS; ++i) {
        zx::store_be32(bytes + 4 * i, ctx->Intermediate_Hash[i]);
    }
    zx::write_hex(hex, bytes, sizeof bytes, zx::kUpperDigits);
    return hex;
}
