// Compares checks, digests and ciphers with their plain algorithms: any message and key of any
// size, in any pieces, with the buffers at any place.
#include <endian.h>

#include <compare>
#include <tuple>

#include "arena.hpp"
#include "plain_denc.hpp"
#include "zxaes.h"
#include "zxcrc.h"
#include "zxdes.h"
#include "zxmd5.h"
#include "zxmem.h"

namespace {

using zx::fuzz::Arena;
using zx::fuzz::Bytes;
using zx::fuzz::Edge;
using zx::fuzz::Input;
using zx::fuzz::kFarthest;
using zx::fuzz::Pair;
using zx::fuzz::require;
using zx::plain::Aes;

constexpr std::size_t kMaxSize = 4 * 2048;

std::vector<std::uint32_t> g_sizes;  // sizes of the buffers in use

std::uint32_t u32(std::size_t size) {
    return static_cast<std::uint32_t>(size);
}

/* ------------------------------------------------ checks and digests -- */

void check_crcs(const zx::plain::Crcs& expected, const std::uint8_t* at, std::size_t size) {
    require(zxcrc_api_CRC32(at, u32(size)) == expected.mpeg2, "CRC-32/MPEG-2");
    require(zxcrc_api_CRC(at, u32(size)) == expected.xmodem >> 16U, "CRC-16/XMODEM");
    require(zxcrc_api_CRC16(at, u32(size)) == expected.modbus, "CRC-16/MODBUS");
}

// `out` may overlap the message. The digest is written at the end; for the text, 16 zeros come
// first.
void check_md5(Arena& arena, const Pair& at) {
    arena.compare(at, "MD5", [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
        zx::plain::Md5Words words;
        std::int32_t result = 1;
        if (plainly) {
            words = zx::plain::md5({in, at.in.size});
        } else {
            result = zxmd5_api_outNum(in, at.in.size, words.data());
        }
        std::memcpy(out, words.data(), sizeof words);
        return result;
    });
    arena.compare(at, "MD5 as a text",
                  [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
                      if (!plainly) {
                          return zxmd5_api_outStr(in, at.in.size, reinterpret_cast<char*>(out));
                      }
                      std::memset(out, 0, 16);
                      const zx::plain::Md5Words words = zx::plain::md5({in, at.in.size});
                      for (std::size_t i = 0; i < words.size(); ++i) {
                          std::snprintf(reinterpret_cast<char*>(out) + 8 * i, 9, "%08x",
                                        be32toh(htole32(words[i])));
                      }
                      return 16;
                  });
    require(g_sizes.empty(), "MD5 gives its copies back");
}

auto state_of(const SHA1Context& context) {
    const auto waiting = static_cast<std::size_t>(context.Message_Block_Index);
    return std::tuple(std::to_array(context.Intermediate_Hash), context.Length_Low,
                      context.Length_High, context.Computed, context.Corrupted, waiting,
                      std::string(context.Message_Block, context.Message_Block + waiting));
}

// SHA-1 piece by piece, next to the plain algorithm.
class Sha1 {
public:
    // `room`: bytes until the length overflows; 0: it starts at zero.
    explicit Sha1(std::uint32_t room = 0) {
        std::memset(&real_, 0xA5, sizeof real_);
        SHA1Reset(&real_);
        real_.Length_Low -= 8 * room;
        real_.Length_High -= room > 0 ? 1 : 0;
        plain_ = real_;
    }

    void add(Bytes piece) {
        SHA1Input(&real_, piece.data(), u32(piece.size()));
        zx::plain::sha1_input(plain_, piece);
        require(state_of(real_) == state_of(plain_), "SHA-1 on its way");
    }

    void finish() {
        for (int turn = 0; turn < 2; ++turn) {
            require(SHA1Result(&real_) == zx::plain::sha1_result(plain_) &&
                        state_of(real_) == state_of(plain_),
                    "SHA-1");
        }
        require(plain_.Corrupted != 0 ||
                    std::all_of(std::begin(real_.Message_Block), std::end(real_.Message_Block),
                                [](std::uint8_t byte) { return byte == 0; }),
                "SHA-1 forgets the message");
    }

private:
    SHA1Context real_;
    SHA1Context plain_;
};

/* ----------------------------------------------------------- ciphers -- */

struct Job {
    std::size_t size;
    std::ptrdiff_t distance;
    Edge edge;
    bool decrypts;
    std::uint32_t mode;        // of AES
    std::uint32_t offset = 0;  // in the keystream
};

Aes::Block load(const std::uint8_t* at) {
    Aes::Block block;
    std::copy_n(at, block.size(), block.begin());
    return block;
}

void plain_ecb(const Aes& aes, bool decrypts, const std::uint8_t* in, std::uint8_t* out) {
    Aes::Block block = load(in);
    decrypts ? aes.decrypt(block) : aes.encrypt(block);
    std::copy(block.begin(), block.end(), out);
}

void plain_cbc(const Aes& aes, bool decrypts, Aes::Block& iv, const std::uint8_t* in,
               std::uint8_t* out) {
    const Aes::Block source = load(in);
    Aes::Block block = source;
    if (decrypts) {
        aes.decrypt(block);
    }
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] ^= iv[i];
    }
    if (!decrypts) {
        aes.encrypt(block);
    }
    iv = decrypts ? source : block;
    std::copy(block.begin(), block.end(), out);
}

void plain_feedback(const Aes& aes, bool decrypts, Aes::Block& iv, std::uint32_t& offset,
                    const std::uint8_t* in, std::uint8_t* out) {
    if (offset == 0) {
        aes.scramble(iv);
    }
    const std::uint8_t source = *in;
    *out = source ^ iv[offset];
    iv[offset] = decrypts ? source : *out;
    offset = (offset + 1) % 16;
}

struct Chain {
    Aes::Block iv{};
    std::uint32_t offset = 0;

    bool operator==(const Chain&) const = default;
};

// Works through the whole message, or as far as one of the inner operations goes.
void plain_aes(const Aes& aes, const Job& job, std::size_t size, Chain& chain,
               const std::uint8_t* in, std::uint8_t* out) {
    const std::size_t step = job.mode == ZXAES_ECB || job.mode == ZXAES_CBC ? 16 : 1;
    for (std::size_t at = 0; at + step <= size; at += step) {
        if (job.mode == ZXAES_ECB) {
            plain_ecb(aes, job.decrypts, in + at, out + at);
        } else if (job.mode == ZXAES_CBC) {
            plain_cbc(aes, job.decrypts, chain.iv, in + at, out + at);
        } else {
            plain_feedback(aes, job.decrypts, chain.iv, chain.offset, in + at, out + at);
        }
    }
}

// `aes`: NULL when no AES key has this size.
void check_aes_whole(Arena& arena, Bytes key, const Aes* aes, const Job& job) {
    const Pair at = arena.place(job.size, job.size, job.distance, job.edge);
    arena.compare(at, "AES", [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
        if (!plainly) {
            return zxaes_api_done(job.decrypts ? ZXAES_DECRYPT : ZXAES_ENCRYPT, job.mode, in, out,
                                  u32(job.size), key.data(), static_cast<std::uint8_t>(key.size()));
        }
        if (aes == nullptr || job.size % 16 != 0) {
            return 0;
        }
        Chain chain;
        plain_aes(*aes, job, job.size, chain, in, out);
        return 1;
    });
}

void check_aes_inner(Arena& arena, Bytes key, const Aes& aes, const Job& job) {
    const Pair at = arena.place(job.size, job.size, job.distance, job.edge);
    zxaes_ctt context;
    const bool inverse = job.decrypts && (job.mode == ZXAES_ECB || job.mode == ZXAES_CBC);
    (inverse ? zxaes_innerapi_setDecKey : zxaes_innerapi_setEncKey)(&context, key.data(),
                                                                    u32(8 * key.size()));
    const auto mode = static_cast<std::uint32_t>(job.decrypts);
    arena.compare(at, "AES within", [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
        Chain chain{load(key.data()), job.offset};
        if (plainly) {
            const std::size_t most = job.mode == ZXAES_ECB ? 16 : ZXAES_CALL_LIMIT;
            plain_aes(aes, job, std::min(job.size, most), chain, in, out);
        } else if (job.mode == ZXAES_ECB) {
            if (job.size >= 16) {
                zxaes_innerapi_cryptECB(&context, mode, in, out);
            }
        } else if (job.mode == ZXAES_CBC) {
            zxaes_innerapi_cryptCBC(&context, mode, u32(job.size), chain.iv.data(), in, out);
        } else {
            zxaes_innerapi_cryptCFB128(&context, mode, u32(job.size), &chain.offset,
                                       chain.iv.data(), in, out);
        }
        return chain;
    });
}

// DES with the operations on single bits.
std::int32_t plain_des(Bytes key, const Job& job, const std::uint8_t* in, std::uint8_t* out) {
    const std::size_t keys = std::min<std::size_t>(key.size() / 8, 3);
    if (keys == 0 || job.size == 0 || job.size % 8 != 0) {
        return 0;
    }
    std::uint8_t schedules[3][ZXDES_ROUNDS][ZXDES_SUBKEY_BITS];
    for (std::size_t i = 0; i < keys; ++i) {
        zxdes_api_setsubkey(key.data() + 8 * i, schedules[i]);
    }
    const std::uint8_t way = job.decrypts ? 255 : 0;
    const std::size_t first = job.decrypts && keys == 3 ? 2 : 0;
    const std::size_t last = keys == 3 ? 2 - first : 0;
    for (std::size_t at = 0; at < job.size; at += 8) {
        zxdes_api_des(in + at, out + at, schedules[first], way);
        if (keys > 1) {
            zxdes_api_des(out + at, out + at, schedules[1], 255 - way);
            zxdes_api_des(out + at, out + at, schedules[last], way);
        }
    }
    return 1;
}

void check_des(Arena& arena, Bytes key, const Job& job) {
    const Pair at = arena.place(job.size, job.size, job.distance, job.edge);
    arena.compare(at, "DES", [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
        return plainly ? plain_des(key, job, in, out)
                       : zxdes_api_done(job.decrypts ? 1 : 0, in, out, u32(job.size), key.data(),
                                        static_cast<std::uint8_t>(key.size()));
    });
}

/* ------------------------------------------------- every placement -- */

void sweep_messages() {
    Arena arena(4096);
    const std::uint8_t* const message = arena.content();
    zx::plain::Crcs crcs;
    for (std::size_t size = 0; size <= 1100; ++size) {
        const Bytes bytes{message, size};
        check_crcs(crcs, arena.put(bytes, zx::fuzz::kFront), size);
        for (std::size_t shift = 1; shift < 64; ++shift) {
            check_crcs(crcs, arena.put(bytes, {false, shift}), size);
        }
        check_crcs(crcs, arena.put(bytes, zx::fuzz::kBack), size);
        crcs.add(message[size]);
    }
    for (unsigned i = 0; i < 256; ++i) {
        const auto byte = static_cast<std::uint8_t>(i);
        require(aucCRCTable[i] == zx::plain::crc_step(0, byte, 0x04C11DB7) &&
                    (aucCrcTableL[i] << 8U | aucCrcTableH[i]) ==
                        static_cast<int>(zx::plain::crc_step_reflected(0, byte, 0xA001)),
                "the tables");
    }
    for (std::size_t size = 0; size <= 270; ++size) {
        const auto back = static_cast<std::ptrdiff_t>(size);
        check_md5(arena, arena.place(size, ZXMD5_TEXT_SIZE, back, zx::fuzz::kBack));
        check_md5(arena, arena.place(size, ZXMD5_TEXT_SIZE, -ZXMD5_TEXT_SIZE, zx::fuzz::kBack));
        check_md5(arena, arena.place(size, ZXMD5_TEXT_SIZE, back / 2, {false, size % 64}));
        for (std::size_t split = 0; split <= size; split += 1 + size / 16) {
            Sha1 sha1;
            const std::uint8_t* const at = arena.put({message, split}, zx::fuzz::kBack);
            sha1.add({at, split});
            sha1.add({arena.put({message, size - split}, {false, split % 64}), size - split});
            sha1.finish();
            sha1.add({arena.put({message, size}, zx::fuzz::kBack), size});
            sha1.finish();
        }
    }
    for (const std::uint32_t room : {1U, 64U, 65U, 200U, 201U}) {
        for (const std::size_t waiting : {0U, 63U}) {
            Sha1 sha1(room + u32(waiting));
            sha1.add({message, waiting});
            sha1.add({message, 200});
            sha1.finish();
        }
    }
}

// Takes a message of many blocks and some more bytes.
void sweep_a_large_message() {
    constexpr std::size_t kSize = 100'003;
    Arena arena(kSize + 64);
    zx::plain::Crcs crcs;
    std::for_each_n(arena.content(), kSize, [&](std::uint8_t byte) { crcs.add(byte); });
    const std::uint8_t* const at = arena.put({arena.content(), kSize}, {false, 3});
    check_crcs(crcs, at, kSize);
    Sha1 sha1;
    sha1.add({at, kSize});
    sha1.finish();
    check_md5(arena, arena.place(kSize, ZXMD5_TEXT_SIZE, kSize, zx::fuzz::kBack));
}

// Sizes with partial blocks, and sizes that use groups of blocks of every size.
constexpr std::size_t kSizes[] = {1, 8, 16, 24, 31, 48, 72, 100, 128, 143, 160, 272};

void sweep_ciphers() {
    Arena arena(4096);
    const Bytes key{arena.content(), 32};
    for (const std::size_t key_size : {16U, 24U, 32U}) {
        const Bytes part = key.first(key_size);
        const Aes aes(part);
        const std::ptrdiff_t step = key_size == 16 ? 1 : 13;
        for (std::ptrdiff_t distance = -kFarthest; distance <= kFarthest; distance += step) {
            for (const std::size_t size : kSizes) {
                const bool is_last = (distance + static_cast<std::ptrdiff_t>(size / 8)) % 2 != 0;
                for (const bool decrypts : {false, true}) {
                    Job job{size, distance, {is_last, 0}, decrypts, 0};
                    if (size % 8 == 0 && size <= 72) {
                        check_des(arena, key.first(distance % 8 == 0 ? 24 : 8), job);
                    }
                    for (job.mode = ZXAES_ECB; job.mode <= 3; ++job.mode) {
                        if (job.mode != ZXAES_CBC && size % 16 == 0) {
                            check_aes_whole(arena, part, &aes, job);
                        }
                        if (job.mode != ZXAES_ECB) {
                            check_aes_inner(arena, part, aes, job);
                        }
                    }
                }
            }
        }
    }
}

// Varies everything else: alignments, buffers side by side, the limit of a call, and the place in
// the keystream.
void sweep_cipher_states() {
    Arena arena(8192);
    const Bytes key{arena.content(), 16};
    const Aes aes(key);
    for (std::uint32_t turn = 0; turn < 64 * 6; ++turn) {
        Job job{144 + turn % 16, 160, {false, turn % 64}, turn / 64 % 2 != 0, 1 + turn / 128};
        check_aes_inner(arena, key, aes, job);
        job.size = 144;
        for (const std::ptrdiff_t distance : {0, -144, 144, 700}) {
            job.distance = distance;
            check_aes_whole(arena, key, &aes, job);
            check_des(arena, key, job);
        }
        for (const std::size_t size : {3231U, 3232U, 3233U, 3300U}) {
            if (turn % 64 == 0) {
                job.size = size;
                check_aes_inner(arena, key, aes, job);
            }
        }
    }
    for (std::uint32_t offset = 0; offset < 16; ++offset) {
        for (const std::size_t size : {0U, 1U, 7U, 16U, 33U, 50U}) {
            for (std::ptrdiff_t distance = -20; distance <= 20; ++distance) {
                for (const bool decrypts : {false, true}) {
                    check_aes_inner(arena, key, aes,
                                    {size, distance, zx::fuzz::kBack, decrypts, 3, offset});
                }
            }
        }
    }
}

/* ------------------------------------------------- what is published -- */

std::uint64_t des_block(std::uint8_t way, std::uint64_t block, std::uint64_t key) {
    block = htobe64(block);
    key = htobe64(key);
    std::uint8_t in[8], out[8], keys[8];
    std::memcpy(in, &block, sizeof in);
    std::memcpy(keys, &key, sizeof keys);
    require(zxdes_api_done(way, in, out, sizeof in, keys, sizeof keys) == 1, "DES");
    std::memcpy(&block, out, sizeof out);
    return be64toh(block);
}

void check_published() {
    std::uint8_t key[32], block[16], out[16];
    for (unsigned i = 0; i < sizeof key; ++i) {
        key[i] = static_cast<std::uint8_t>(i);
        block[i % 16] = static_cast<std::uint8_t>(17 * (i % 16));
    }
    constexpr std::pair<std::uint8_t, const char*> kAes[] = {
        {16, "69c4e0d86a7b0430d8cdb78070b4c55a"},
        {24, "dda97ca4864cdfe06eaf70a0ec0d7191"},
        {32, "8ea2b7ca516745bfeafc49904b496089"}};
    for (const auto& [size, coded] : kAes) {
        std::string text;
        zxaes_api_done(0, ZXAES_ECB, block, out, sizeof block, key, size);
        for (const std::uint8_t byte : out) {
            text += "0123456789abcdef"[byte >> 4U];
            text += "0123456789abcdef"[byte & 15U];
        }
        require(text == coded, "FIPS 197, C");
    }
    require(des_block(0, 0x4E6F772069732074, 0x0123456789ABCDEF) == 0x3FA40E8A984D4815,
            "FIPS 81, B");
    // The chain of Rivest's test finds any wrong entry of a table.
    std::uint64_t chain = 0x9474B8E8C73BCA7D;
    for (std::uint8_t round = 0; round < 16; ++round) {
        chain = des_block(round % 2, chain, chain);
    }
    require(chain == 0x1B1A2DDB4C642438, "Testing Implementations of DES");

    constexpr char kDigits[] = "123456789";
    const auto* const digits = reinterpret_cast<const std::uint8_t*>(kDigits);
    char md5[ZXMD5_TEXT_SIZE];
    zxmd5_api_outStr(digits, 9, md5);
    require(std::string(md5) == "25f9e794323b453885f5181f1b624d0b", "MD5");
    char* const sha1 = sha1_api_hash(kDigits);
    std::string whole = "F7C3BC1D808E04732ADF679965CCC34CA7AE3441";
    whole.resize(128);
    require(std::string(sha1, 128) == whole, "SHA-1 as a text");
    std::free(sha1);
    require(zxcrc_api_CRC16(digits, 9) == 0x4B37 && zxcrc_api_CRC32(digits, 9) == 0x0376E6E7 &&
                zxcrc_api_CRC(digits, 9) == 0x31C3,
            "the CRCs");
    require(zxmd5_innerapi_getPadLen(ZXMD5_MAX_INPUT) == 0xFFFFFFC0 &&
                zxmd5_innerapi_getPadLen(UINT64_MAX - 72) == UINT64_MAX - 63 &&
                zxmd5_innerapi_leftrotate(0x80000001, 32) == 0x80000001 &&
                zxmd5_innerapi_leftrotate(0x80000001, 33) == 3,
            "the steps of MD5");
}

/* ----------------------------------- what would lead out of its bounds -- */

void check_bounds() {
    std::uint8_t bits[13]{}, bytes[4]{}, letters[] = "abcde";
    std::memset(bits, 0xEE, 12);
    std::memset(bytes, 0xEE, 3);
    constexpr std::uint8_t kBytes[] = {0xA5, 0};
    zxdes_api_byte2bit(kBytes, bits, 10);
    require(std::memcmp(bits, "\1\0\1\0\0\1\0\1\0\0\xEE\xEE", 12) == 0, "bits");
    zxdes_api_bit2byte(bits, bytes, 11);  // only the lowest bit of 0xEE counts, which is 0
    require(std::memcmp(bytes, "\xA5\0\xEE", 3) == 0, "bytes");
    zxdes_api_rotatel(letters, 5, 5 * 7 + 2);
    zxdes_api_rotatel(letters, 0, 1);
    require(std::memcmp(letters, "cdeab", 5) == 0, "a rotation");
    constexpr std::uint8_t kTable[] = {5, 3, 1, 1}, kLong[65] = {1};
    zxdes_api_transform(letters, letters, kTable, 4);
    zxdes_api_transform(letters, letters, kLong, 65);
    require(std::memcmp(letters, "beccb", 5) == 0, "a permutation");

    zxaes_ctt unset{};
    std::uint8_t out[32] = "kept", iv[16] = "kept";
    std::uint32_t offset = 0;
    zxaes_innerapi_setEncKey(&unset, bits, 100);
    zxaes_innerapi_setDecKey(&unset, bits, 0);
    zxaes_innerapi_cryptECB(&unset, 0, kLong, out);
    zxaes_innerapi_cryptCBC(&unset, 0, 32, iv, kLong, out);
    for (const std::uint32_t at : {0U, 16U}) {
        offset = at;
        zxaes_innerapi_cryptCFB128(&unset, 0, 32, &offset, iv, kLong, out);
    }
    require(std::string(out, out + 5) == std::string("kept", 5) && std::memcmp(iv, out, 16) == 0,
            "no key");

    for (const int index : {-1, 64, INT32_MAX, INT32_MIN}) {
        for (const std::uint32_t size : {0U, 200U}) {
            SHA1Context context;
            SHA1Reset(&context);
            context.Message_Block_Index = index;
            SHA1Input(&context, std::vector<std::uint8_t>(200).data(), size);
            require(context.Corrupted == (size == 0 ? 0 : 1) && SHA1Result(&context) == 0,
                    "no context");
        }
    }
}

}  // namespace

// These take the place of the library's allocator. They check that a copy of the message is wiped
// before it is freed.
extern "C" void* zxmem_api_malloc(std::uint32_t size, const char* name, const char* file,
                                  std::uint32_t) {
    require(std::strcmp(name, "message") == 0 && std::strcmp(file, "src/denc/zxmd5") == 0,
            "what the buffer is for");
    g_sizes.push_back(size);
    return std::malloc(size);
}
extern "C" void zxmem_api_free(void** buffer) {
    const auto* const at = static_cast<std::uint8_t*>(*buffer);
    require(std::all_of(at, at + g_sizes.back(), [](std::uint8_t byte) { return byte == 0; }),
            "the copy is wiped");
    g_sizes.pop_back();
    std::free(*buffer);
}

// Runs what seeds would miss.
void zx_fuzz_sweep() {
    zx::fuzz::log_to_nowhere(0);
    check_published();
    check_bounds();
    sweep_messages();
    sweep_a_large_message();
    sweep_ciphers();
    sweep_cipher_states();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Arena arena(kMaxSize + 512);

    // The input: how often the message is repeated, what to do with it, a key, pieces and places,
    // and the message.
    Input input({data, std::min<std::size_t>(size, 2048)});
    const std::size_t times = 1 + input.take_below(4);
    const auto how = input.take<std::uint8_t>();
    zx::fuzz::log_to_nowhere(how);
    const Bytes key = input.take_bytes(input.take_below(40));
    Input pieces(input.take_bytes(16));
    std::vector<std::uint8_t> message;
    for (std::size_t i = 0; i < times; ++i) {
        message.insert(message.end(), input.rest().begin(), input.rest().end());
    }
    // A few inputs keep a size that no cipher takes.
    message.resize(how >= 240 ? message.size() : message.size() / 16 * 16);

    // The plain ciphers are slow, so the message is cut for them.
    const std::size_t ciphered = std::min<std::size_t>(message.size(), 496 + how / 240U * 7U);
    Job job{
        ciphered, pieces.take<std::int16_t>() % (kFarthest + 1), {}, how % 2 == 0, how / 2U % 4};
    job.offset = pieces.take<std::uint8_t>() % 16;
    job.edge = {pieces.take_below(2) != 0, 0};
    job.edge.shift = job.edge.is_last ? 0 : pieces.take_below(64);
    if (how % 16 == 15) {  // side by side
        job.distance = static_cast<std::ptrdiff_t>(ciphered) * (job.distance < 0 ? -1 : 1);
    }
    zx::plain::Crcs crcs;
    for (const std::uint8_t byte : message) {
        crcs.add(byte);
    }
    check_crcs(crcs, arena.put(message, job.edge), message.size());
    Sha1 sha1(pieces.take<std::uint8_t>());
    for (Bytes rest = message; !rest.empty();) {
        const std::size_t asked = pieces.empty() ? rest.size() : 1 + pieces.take_below(200);
        const Bytes piece = rest.first(std::min(asked, rest.size()));
        sha1.add({arena.put(piece, job.edge), piece.size()});
        rest = rest.subspan(piece.size());
    }
    sha1.finish();

    const Pair at = arena.place(ciphered, ciphered, job.distance, job.edge);
    std::copy_n(message.begin(), ciphered, arena.content() + at.in.at);
    Job few = job;
    few.size = std::min<std::size_t>(ciphered, 96);
    check_des(arena, key, few);
    if (key.size() == 16 || key.size() == 24 || key.size() == 32) {
        const Aes aes(key);
        check_aes_whole(arena, key, &aes, job);
        check_aes_inner(arena, key, aes, job);
    } else {
        check_aes_whole(arena, key, nullptr, job);
    }
    check_md5(arena, arena.place(message.size(), ZXMD5_TEXT_SIZE, job.distance % 290, job.edge));
    return 0;
}
