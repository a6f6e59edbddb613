// Base64 both ways over any alphabet, bit by bit.
#include "support.hpp"
#include "zxmd.h"

namespace {

using zx::fuzz::Bytes;
using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::size_t kMaxSize = 12288;  // more than two pieces of text that are decoded at once
constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string encoded(const std::string& alphabet, Bytes bytes) {
    std::string text;
    for (std::size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
        std::size_t letter = 0;
        for (std::size_t i = bit; i < bit + 6; ++i) {
            const bool is_set = i < 8 * bytes.size() && (bytes[i / 8] >> (7 - i % 8) & 1) != 0;
            letter = 2 * letter + (is_set ? 1 : 0);
        }
        text += alphabet[letter];
    }
    text.resize((bytes.size() + 2) / 3 * 4, '=');
    return text;
}

// Up to the first "=" that is the third or fourth character of its group.
std::string unpadded(const std::string& text) {
    std::size_t end = 0;
    while (end < text.size() && (text[end] != '=' || end % 4 < 2)) {
        ++end;
    }
    return text.substr(0, end);
}

// What a text means. Foreign characters are all ones, bits that make no byte are dropped.
std::string decoded(const std::string& alphabet, const std::string& text) {
    std::string bytes;
    std::size_t bits = 1;
    for (const char c : text) {
        bits = bits << 6U | std::min<std::size_t>(alphabet.find(c), 63);
        if (bits >= 1U << 24U) {
            bytes += {static_cast<char>(bits >> 16U), static_cast<char>(bits >> 8U),
                      static_cast<char>(bits)};
            bits = 1;
        }
    }
    if (bits >= 1U << 18U) {
        bytes += {static_cast<char>(bits >> 10U), static_cast<char>(bits >> 2U)};
    } else if (bits >= 1U << 12U) {
        bytes += static_cast<char>(bits >> 4U);
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static GuardedMemory inputs(2 * kMaxSize);
    static GuardedMemory out(2 * kMaxSize);
    static GuardedMemory alphabets(64);

    Input input({data, std::min(size, kMaxSize)});
    std::string alphabet = kStandard;
    if (input.take_below(2) != 0) {
        const Bytes own = input.take_bytes(64);
        std::replace_copy(own.begin(), own.end(), alphabet.begin(), std::uint8_t{0},
                          std::uint8_t{'0'});
    }
    const auto* const letters = reinterpret_cast<const char*>(
        alphabets.copy({reinterpret_cast<const std::uint8_t*>(alphabet.data()), 64}));
    const Bytes bytes = input.rest();
    const auto length = static_cast<std::uint32_t>(bytes.size());

    const std::string expected = encoded(alphabet, bytes);
    char* const text = out.old_text(ZXMD_BASE64_SIZE(bytes.size()));
    require(zxmd_api_ascii2Base64(letters, inputs.copy(bytes), length, text) == expected.size() &&
                text == expected,
            "bytes as text");

    // Back, where each letter means one thing; and the bytes read as a text, whatever they are.
    for (const std::string& source : {expected, input.take_text(kMaxSize)}) {
        const std::string body = unpadded(source);
        std::uint8_t* const back = out.fill((source.size() + 3) / 4 * 3, 'x');
        const std::uint32_t count = zxmd_api_base642Ascii(letters, inputs.text(source), back);
        require(count == body.size() / 4 * 3 + (body.size() % 4 > 1 ? body.size() % 4 - 1 : 0),
                "the number of bytes");
        require(decoded(alphabet, body) == std::string(back, back + count), "text as bytes");
    }
    return 0;
}
