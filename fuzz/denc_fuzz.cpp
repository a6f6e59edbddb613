// Digests, checks and ciphers of any message and key: against OpenSSL where it has them, otherwise
// bit by bit. Messages end at the guard, which the wide paths of the processor must not cross.
#include <openssl/evp.h>

#include <array>
#include <memory>
#include <vector>

#include "sha1.h"
#include "support.hpp"
#include "zxaes.h"
#include "zxcrc.h"
#include "zxdes.h"
#include "zxmd5.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;
using Buffer = std::vector<std::uint8_t>;

constexpr std::size_t kMaxSize = 4 * 2048;

GuardedMemory& outputs() {
    static GuardedMemory memory(kMaxSize);
    return memory;
}

bool holds(const std::uint8_t* at, const Buffer& expected) {
    return std::equal(expected.begin(), expected.end(), at);
}

// A bit at a time, most significant first, in the upper bits of a register.
std::uint32_t crc(Bytes bytes, std::uint32_t polynomial, std::uint32_t value) {
    for (const std::uint8_t byte : bytes) {
        value ^= static_cast<std::uint32_t>(byte) << 24U;
        for (int bit = 0; bit < 8; ++bit) {
            value = value << 1U ^ ((value >> 31U) != 0 ? polynomial : 0);
        }
    }
    return value;
}

// Least significant first.
std::uint32_t crc_modbus(Bytes bytes) {
    std::uint32_t value = 0xFFFF;
    for (const std::uint8_t byte : bytes) {
        value ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            value = value >> 1U ^ ((value & 1U) != 0 ? 0xA001U : 0U);
        }
    }
    return value;
}

void check_crcs(Bytes bytes, const std::uint8_t* at) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    require(zxcrc_api_CRC32(at, size) == crc(bytes, 0x04C11DB7, UINT32_MAX), "CRC-32");
    require(zxcrc_api_CRC(at, size) == crc(bytes, 0x10210000, 0) >> 16U, "CRC-16/XMODEM");
    require(zxcrc_api_CRC16(at, size) == crc_modbus(bytes), "CRC-16/MODBUS");
}

Buffer digest(const EVP_MD* kind, Bytes bytes) {
    Buffer out(EVP_MAX_MD_SIZE);
    unsigned size = 0;
    require(EVP_Digest(bytes.data(), bytes.size(), out.data(), &size, kind, nullptr) == 1,
            "OpenSSL has the digest");
    out.resize(size);
    return out;
}

void check_digests(Input& control, Bytes bytes, const std::uint8_t* at) {
    std::uint32_t words[4] = {};
    require(zxmd5_api_outNum(at, bytes.size(), words) == 1 &&
                holds(reinterpret_cast<const std::uint8_t*>(words), digest(EVP_md5(), bytes)),
            "MD5");

    SHA1Context context;
    SHA1Reset(&context);
    for (std::size_t done = 0; done < bytes.size();) {
        const std::size_t asked = control.empty() ? bytes.size() : 1 + control.take_below(200);
        const std::size_t piece = std::min(asked, bytes.size() - done);
        SHA1Input(&context, at + done, static_cast<std::uint32_t>(piece));
        done += piece;
    }
    require(SHA1Result(&context) == 1, "SHA-1 has a result");
    Buffer sha1;
    for (const std::uint32_t word : context.Intermediate_Hash) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            sha1.push_back(static_cast<std::uint8_t>(word >> shift));
        }
    }
    require(sha1 == digest(EVP_sha1(), bytes), "SHA-1");
}

// Without padding, from an IV of zeros.
Buffer cipher(const EVP_CIPHER* kind, bool encrypts, Bytes key, Bytes in) {
    constexpr std::uint8_t kZeros[16] = {};
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    Buffer out(in.size() + 16);
    int size = 0;
    require(EVP_CipherInit_ex(context.get(), kind, nullptr, key.data(), kZeros, encrypts) == 1 &&
                EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 &&
                EVP_CipherUpdate(context.get(), out.data(), &size, in.data(),
                                 static_cast<int>(in.size())) == 1,
            "OpenSSL has the cipher");
    out.resize(static_cast<std::size_t>(size));
    return out;
}

void check_des(Bytes key, Bytes in, const std::uint8_t* at, bool encrypts) {
    const auto size = static_cast<std::uint32_t>(in.size());
    const auto key_size = static_cast<std::uint8_t>(key.size());
    const std::uint8_t direction = encrypts ? 0 : 1;
    std::uint8_t* const out = outputs().fill(in.size(), 'x');
    const bool counts = key.size() >= 8 && !in.empty() && in.size() % 8 == 0;
    require(zxdes_api_done(direction, at, out, size, key.data(), key_size) == (counts ? 1 : 0),
            "what DES takes");
    if (!counts) {
        return;
    }
    Buffer keys(key.begin(), key.begin() + static_cast<std::ptrdiff_t>(key.size() / 8 * 8));
    for (std::size_t i = 0; keys.size() < 24; ++i) {
        keys.push_back(key[i % 8]);  // K3 = K1, and K2, too, for a single key
    }
    require(holds(out, cipher(EVP_des_ede3_ecb(), encrypts, keys, in)), "DES");
    require(zxdes_api_done(encrypts ? 1 : 0, out, out, size, key.data(), key_size) == 1 &&
                std::equal(in.begin(), in.end(), out),
            "DES and back");
}

// The keystream is what decrypting with the round keys of encryption makes of the IV.
Buffer feedback(Bytes key, Bytes in, bool encrypts) {
    zxaes_ctt context;
    zxaes_innerapi_setEncKey(&context, key.data(), static_cast<std::uint32_t>(8 * key.size()));
    std::array<std::uint8_t, ZXAES_BLOCK_SIZE> chain{};
    Buffer out;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (i % chain.size() == 0) {
            zxaes_innerapi_cryptECB(&context, ZXAES_DECRYPT, chain.data(), chain.data());
        }
        std::uint8_t& link = chain[i % chain.size()];
        out.push_back(static_cast<std::uint8_t>(in[i] ^ link));
        link = encrypts ? out.back() : in[i];
    }
    return out;
}

void check_aes(Bytes key, Bytes in, const std::uint8_t* at, bool encrypts, std::uint32_t mode) {
    const auto size = static_cast<std::uint32_t>(in.size());
    const auto key_size = static_cast<std::uint8_t>(key.size());
    std::uint8_t* const out = outputs().fill(in.size(), 'x');
    const bool counts =
        (key.size() == 16 || key.size() == 24 || key.size() == 32) && in.size() % 16 == 0;
    const std::uint32_t direction = encrypts ? ZXAES_ENCRYPT : ZXAES_DECRYPT;
    require(
        zxaes_api_done(direction, mode, at, out, size, key.data(), key_size) == (counts ? 1 : 0),
        "what AES takes");
    if (!counts) {
        return;
    }
    const EVP_CIPHER* const kinds[2][3] = {
        {EVP_aes_128_ecb(), EVP_aes_192_ecb(), EVP_aes_256_ecb()},
        {EVP_aes_128_cbc(), EVP_aes_192_cbc(), EVP_aes_256_cbc()}};
    require(holds(out, mode == ZXAES_ECB || mode == ZXAES_CBC
                           ? cipher(kinds[mode - 1][key.size() / 8 - 2], encrypts, key, in)
                           : feedback(key, in, encrypts)),
            "AES");
    require(zxaes_api_done(1 - direction, mode, out, out, size, key.data(), key_size) == 1 &&
                std::equal(in.begin(), in.end(), out),
            "AES and back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory messages(kMaxSize);

    // How often the message stands there, how, a key, the pieces for SHA-1 and the message.
    Input input({data, std::min<std::size_t>(size, 2048)});
    const std::size_t times = 1 + input.take_below(4);
    const auto how = input.take<std::uint8_t>();
    zx::fuzz::log_to_nowhere(how);
    const Bytes key = input.take_bytes(input.take_below(40));
    Input pieces(input.take_bytes(16));
    Buffer message;
    for (std::size_t i = 0; i < times; ++i) {
        message.insert(message.end(), input.rest().begin(), input.rest().end());
    }
    // Seldom of a size that no cipher takes.
    message.resize(how >= 240 ? message.size() : message.size() / 16 * 16);

    const std::uint8_t* const at = messages.copy(message);
    check_crcs(message, at);
    check_digests(pieces, message, at);
    check_des(key, message, at, how % 2 == 0);
    check_aes(key, message, at, how % 2 == 0, how / 2 % 4);
    return 0;
}
