// Does one operation a number of times, and nothing else: scripts/bench-instructions.sh counts the
// instructions.
//
//   instructions OPERATION SIZE TIMES
//   instructions                       lists the operations
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "sha1.h"
#include "zxaes.h"
#include "zxcrc.h"
#include "zxmd.h"
#include "zxnet.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kKey[16] = "fifteen letters";

struct Buffers {
    std::vector<std::uint8_t> in;
    std::vector<std::uint8_t> out;
    std::vector<char> text;  // `in` as Base64

    [[nodiscard]] std::uint32_t size() const { return static_cast<std::uint32_t>(in.size()); }
};

template <std::uint32_t kWay, std::uint32_t kMode>
void aes(Buffers& buffers) {
    const std::uint32_t whole = buffers.size() - buffers.size() % ZXAES_BLOCK_SIZE;
    zxaes_api_done(kWay, kMode, buffers.in.data(), buffers.out.data(), whole, kKey, sizeof kKey);
}

void sha1(Buffers& buffers) {
    SHA1Context context;
    SHA1Reset(&context);
    SHA1Input(&context, buffers.in.data(), buffers.size());
    SHA1Result(&context);
}

template <auto kSum>
void sum(Buffers& buffers) {
    buffers.out[0] = static_cast<std::uint8_t>(kSum(buffers.in.data(), buffers.size()));
}

void encode(Buffers& buffers) {
    zxmd_api_ascii2Base64(kAlphabet, buffers.in.data(), buffers.size(), buffers.text.data());
}

void decode(Buffers& buffers) {
    zxmd_api_base642Ascii(kAlphabet, buffers.text.data(), buffers.out.data());
}

struct Operation {
    const char* name;
    void (*run)(Buffers& buffers);
};

constexpr Operation kOperations[] = {
    {"AES-128-ECB-encrypt", aes<ZXAES_ENCRYPT, ZXAES_ECB>},
    {"AES-128-ECB-decrypt", aes<ZXAES_DECRYPT, ZXAES_ECB>},
    {"AES-128-CBC-encrypt", aes<ZXAES_ENCRYPT, ZXAES_CBC>},
    {"AES-128-CBC-decrypt", aes<ZXAES_DECRYPT, ZXAES_CBC>},
    {"SHA-1", sha1},
    {"CRC-32/MPEG-2", sum<zxcrc_api_CRC32>},
    {"CRC-16/MODBUS", sum<zxcrc_api_CRC16>},
    {"CRC-16/XMODEM", sum<zxcrc_api_CRC>},
    {"Base64-encode", encode},
    {"Base64-decode", decode},
    {"Internet-checksum", sum<zxnet_api_checksum>},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc == 1) {
        for (const Operation& operation : kOperations) {
            std::puts(operation.name);
        }
        return 0;
    }
    for (const Operation& operation : kOperations) {
        if (argc == 4 && std::string_view(argv[1]) == operation.name) {
            const std::size_t size = std::strtoul(argv[2], nullptr, 10);
            Buffers buffers{std::vector<std::uint8_t>(size), std::vector<std::uint8_t>(size + 3),
                            std::vector<char>(ZXMD_BASE64_SIZE(size))};
            for (std::size_t i = 0; i < size; ++i) {
                buffers.in[i] = static_cast<std::uint8_t>(i * i >> 3U);
            }
            encode(buffers);
            for (unsigned long left = std::strtoul(argv[3], nullptr, 10); left != 0; --left) {
                operation.run(buffers);
            }
            return 0;
        }
    }
    std::fputs("usage: instructions OPERATION SIZE TIMES\n", stderr);
    return 2;
}
