// Encodes and decodes Base64 with any alphabet, against the plain algorithm, with the buffers at
// any place.
#include "arena.hpp"
#include "zxmd.h"

namespace {

using zx::fuzz::Arena;
using zx::fuzz::Bytes;
using zx::fuzz::Edge;
using zx::fuzz::Input;
using zx::fuzz::kBack;
using zx::fuzz::kFarthest;
using zx::fuzz::kFront;
using zx::fuzz::Pair;

constexpr std::size_t kMaxSize = 12288;  // more than two of the pieces that are decoded at once
constexpr char kStandard[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::uint32_t plain_encode(const char* alphabet, Bytes bytes, char* out) {
    char* to = out;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t size = std::min<std::size_t>(bytes.size() - i, 3);
        std::uint8_t group[3] = {};
        std::copy_n(&bytes[i], size, group);
        *to++ = alphabet[group[0] >> 2U];
        *to++ = alphabet[(group[0] & 3U) << 4U | group[1] >> 4U];
        *to++ = size > 1 ? alphabet[(group[1] & 15U) << 2U | group[2] >> 6U] : '=';
        *to++ = size > 2 ? alphabet[group[2] & 63U] : '=';
    }
    *to = '\0';
    return static_cast<std::uint32_t>(to - out);
}

// Searches the alphabet. A character outside it has the value of all ones.
unsigned value_of(const char* alphabet, char c) {
    unsigned value = 0;
    while (value < 64 && alphabet[value] != c) {
        ++value;
    }
    return value < 64 ? value : 255;
}

// Decodes groups of four characters up to the NUL.
std::uint32_t plain_decode(const char* alphabet, const char* in, std::uint8_t* out) {
    std::uint8_t* to = out;
    for (; in[0] != '\0' && in[1] != '\0'; in += 4) {
        const std::string group(in, strnlen(in, 4));
        unsigned values[4] = {};
        for (std::size_t i = 0; i < group.size(); ++i) {
            values[i] = value_of(alphabet, group[i]);
        }
        *to++ = static_cast<std::uint8_t>(values[0] << 2U | (values[1] >> 4U & 3U));
        if (group.size() < 3 || group[2] == '=') {
            break;
        }
        *to++ = static_cast<std::uint8_t>(values[1] << 4U | (values[2] >> 2U & 15U));
        if (group.size() < 4 || group[3] == '=') {
            break;
        }
        *to++ = static_cast<std::uint8_t>(values[2] << 6U | (values[3] & 63U));
    }
    return static_cast<std::uint32_t>(to - out);
}

class Codec {
public:
    explicit Codec(const std::string& alphabet) {
        const Bytes bytes{reinterpret_cast<const std::uint8_t*>(alphabet.data()), 64};
        letters_ = reinterpret_cast<const char*>(memory().put(bytes, kBack));
    }

    // The arena's content has the bytes already.
    void check_encoding(Arena& arena, const Pair& at) const {
        arena.compare(
            at, "bytes as text", [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
                auto* const text = reinterpret_cast<char*>(out);
                return plainly ? plain_encode(letters_, {in, at.in.size}, text)
                               : zxmd_api_ascii2Base64(
                                     letters_, in, static_cast<std::uint32_t>(at.in.size), text);
            });
    }

    // `out` begins `distance` bytes after the start of the text. The distance may be negative.
    void check_decoding(Arena& arena, const std::string& text, std::ptrdiff_t distance,
                        Edge edge) const {
        const std::size_t room = (std::strlen(text.c_str()) + 3) / 4 * 3;
        const Pair at = arena.place(text.size() + 1, room, distance, edge);
        std::copy_n(text.c_str(), text.size() + 1, arena.content() + at.in.at);
        arena.compare(at, "text as bytes",
                      [&](const std::uint8_t* in, std::uint8_t* out, bool plainly) {
                          const auto* const source = reinterpret_cast<const char*>(in);
                          return plainly ? plain_decode(letters_, source, out)
                                         : zxmd_api_base642Ascii(letters_, source, out);
                      });
    }

    // Decodes at every allowed place: apart, in place and up to `farthest` bytes in front.
    void check_decodings(Arena& arena, const std::string& text, std::ptrdiff_t farthest) const {
        const auto size = static_cast<std::ptrdiff_t>(text.size() + 1);
        check_decoding(arena, text, size, kFront);
        check_decoding(arena, text, size, kBack);
        for (std::ptrdiff_t distance = -farthest; distance <= 0; ++distance) {
            check_decoding(arena, text, distance, distance % 2 == 0 ? kBack : kFront);
        }
    }

    [[nodiscard]] std::string encoded(Bytes bytes) const {
        std::string text(ZXMD_BASE64_SIZE(bytes.size()), '\0');
        text.resize(plain_encode(letters_, bytes, text.data()));
        return text;
    }

private:
    static Arena& memory() {
        static Arena alphabets(64);
        return alphabets;
    }

    const char* letters_;
};

void sweep_sizes(Arena& arena, const Codec& codec) {
    for (std::size_t size = 0; size <= 260; ++size) {
        const std::size_t room = ZXMD_BASE64_SIZE(size);
        const auto after = static_cast<std::ptrdiff_t>(size);
        const auto before = -static_cast<std::ptrdiff_t>(room);
        for (const std::ptrdiff_t distance : {after, before, after + 1}) {
            codec.check_encoding(arena, arena.place(size, room, distance, kFront));
            codec.check_encoding(arena, arena.place(size, room, distance, kBack));
        }
        for (std::size_t shift = 1; shift < 64; shift += 1 + size % 5) {
            codec.check_encoding(arena, arena.place(size, room, after, {false, shift}));
        }
        const std::string text = codec.encoded({arena.content() + 7, size});
        for (std::size_t cut = 0; cut < std::min<std::size_t>(text.size(), 4); ++cut) {
            codec.check_decodings(arena, text.substr(0, text.size() - cut), 8);
        }
        for (std::size_t shift = 1; shift < 64; shift += 1 + size % 5) {
            codec.check_decoding(arena, text, -after, {false, shift});
        }
    }
    for (const std::size_t size : {3U, 24U, 49U, 96U, 150U, 255U}) {
        codec.check_decodings(arena, codec.encoded({arena.content() + 7, size}), kFarthest);
    }
}

// Puts one wrong character at every position.
void sweep_characters(Arena& arena, const Codec& codec) {
    for (const std::size_t size : {97U, 150U}) {
        const std::string text = codec.encoded({arena.content() + 7, size});
        for (std::size_t i = 0; i < text.size(); ++i) {
            for (const char c : {'=', '*', '\x80', '\xFF', '\x01'}) {
                std::string other = text;
                other[i] = c;
                codec.check_decodings(arena, other, 1);
            }
        }
    }
}

}  // namespace

// Runs what seeds would miss.
void zx_fuzz_sweep() {
    Arena arena(4096);
    std::string own(64, '\0');
    for (std::size_t i = 0; i < own.size(); ++i) {
        own[i] = static_cast<char>(7 * i + 5);  // "=" is one of the letters
    }
    for (const std::string& alphabet : {std::string(kStandard), own}) {
        const Codec codec(alphabet);
        sweep_sizes(arena, codec);
        sweep_characters(arena, codec);
    }
    Arena large(2 * kMaxSize);
    const Codec codec(kStandard);
    for (std::size_t size = 3068; size <= 3076; ++size) {  // around one piece, and two
        for (const std::size_t whole : {size, size + 3072}) {
            std::string text = codec.encoded({large.content(), whole});
            codec.check_decodings(large, text, 3);
            for (std::size_t i = 4088; i < std::min<std::size_t>(text.size(), 4104); ++i) {
                std::string other = text;
                other[i] = '=';
                codec.check_decodings(large, other, 1);
            }
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Arena small(kMaxSize), large(4 * kMaxSize);
    Arena& arena = size < kMaxSize / 4 ? small : large;

    Input input({data, std::min(size, kMaxSize)});
    const auto how = input.take<std::uint8_t>();
    std::string alphabet = kStandard;
    if (how % 2 != 0) {
        const Bytes own = input.take_bytes(64);
        std::replace_copy(own.begin(), own.end(), alphabet.begin(), std::uint8_t{0},
                          std::uint8_t{'0'});
    }
    const Codec codec(alphabet);
    const Bytes bytes = input.rest();
    const Edge edge = how % 4 < 2 ? kBack : Edge{false, how / 4U};

    // The buffers are side by side, in either order.
    const std::size_t room = ZXMD_BASE64_SIZE(bytes.size());
    const std::ptrdiff_t sides[] = {static_cast<std::ptrdiff_t>(bytes.size()),
                                    -static_cast<std::ptrdiff_t>(room)};
    const Pair at = arena.place(bytes.size(), room, sides[how / 8 % 2], edge);
    std::copy(bytes.begin(), bytes.end(), arena.content() + at.in.at);
    codec.check_encoding(arena, at);

    // Decodes the text again, and decodes the bytes themselves as if they were a text.
    const std::string text = codec.encoded(bytes);
    for (const std::string& source : {text, input.take_text(kMaxSize)}) {
        const auto apart = static_cast<std::ptrdiff_t>(source.size() + 1);
        codec.check_decoding(arena, source, apart, edge);
        codec.check_decoding(arena, source, -static_cast<std::ptrdiff_t>(how), edge);
    }
    return 0;
}
