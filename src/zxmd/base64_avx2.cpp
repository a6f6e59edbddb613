#include "zxmd/base64.hpp"

#ifdef __x86_64__
#include <immintrin.h>

namespace {

using Vector = __m256i;

[[gnu::target("avx2")]] inline Vector load_halves(const void* low, const void* high) {
    return _mm256_inserti128_si256(
        _mm256_castsi128_si256(_mm_loadu_si128(static_cast<const __m128i*>(low))),
        _mm_loadu_si128(static_cast<const __m128i*>(high)), 1);
}

// Splits 24 bytes, 12 in each half, into 32 numbers of 6 bits. The bytes of a group are placed so
// that two multiplications move their parts into place.
[[gnu::target("avx2")]] inline Vector split(const std::uint8_t* in) {
    const Vector order = _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10,  //
                                          1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    const Vector groups = _mm256_shuffle_epi8(load_halves(in, in + 12), order);
    const Vector down = _mm256_mulhi_epu16(_mm256_and_si256(groups, _mm256_set1_epi32(0x0FC0FC00)),
                                           _mm256_set1_epi32(0x04000040));
    const Vector up = _mm256_mullo_epi16(_mm256_and_si256(groups, _mm256_set1_epi32(0x003F03F0)),
                                         _mm256_set1_epi32(0x01000010));
    return _mm256_or_si256(down, up);
}

// The values of 16 consecutive bytes; all other bytes have the value 0.
struct Row {
    Vector first;
    Vector values;
};

// Bytes outside the row get the top bit, for which the shuffle gives 0.
[[gnu::target("avx2")]] inline Vector look_up(const Row& row, Vector bytes) {
    const Vector index = _mm256_xor_si256(bytes, row.first);
    return _mm256_shuffle_epi8(row.values, _mm256_adds_epu8(index, _mm256_set1_epi8(0x70)));
}

[[gnu::target("avx2")]] inline Row row_at(const void* table, unsigned first) {
    const void* const at = static_cast<const std::uint8_t*>(table) + first;
    return {_mm256_set1_epi8(static_cast<char>(first)), load_halves(at, at)};
}

// Joins 32 numbers of 6 bits into 24 bytes.
[[gnu::target("avx2")]] inline void join(Vector numbers, std::uint8_t* out) {
    const Vector pairs = _mm256_maddubs_epi16(numbers, _mm256_set1_epi32(0x01400140));
    const Vector groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const Vector order = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2,
                                          1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    const Vector bytes = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(groups, order),
                                                     _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 16), _mm256_extracti128_si256(bytes, 1));
}

}  // namespace

[[gnu::target("avx2")]] std::size_t zx::md::encode_avx2(const char* alphabet,
                                                        const std::uint8_t* in, std::size_t size,
                                                        char* out) {
    const Row quarter0 = row_at(alphabet, 0);
    const Row quarter1 = row_at(alphabet, 16);
    const Row quarter2 = row_at(alphabet, 32);
    const Row quarter3 = row_at(alphabet, 48);
    std::size_t done = 0;
    // Each step takes 24 bytes but reads 28.
    for (char* to = out; size - done >= 28; done += 24, to += 32) {
        const Vector numbers = split(in + done);
        const Vector text = _mm256_or_si256(
            _mm256_or_si256(look_up(quarter0, numbers), look_up(quarter1, numbers)),
            _mm256_or_si256(look_up(quarter2, numbers), look_up(quarter3, numbers)));
        _mm256_storeu_si256(reinterpret_cast<Vector*>(to), text);
    }
    return encode_rest(alphabet, in, size, out, done);
}

// The values are inverted, so that characters outside the alphabet have 0. Most rows then hold
// nothing but zeros and are left out.
[[gnu::target("avx2")]] void zx::md::decode_avx2(const Values& values, const char* text,
                                                 std::size_t size, std::uint8_t* out) {
    const Vector ones = _mm256_set1_epi8(63);
    Row rows[16];
    std::size_t count = 0;
    for (unsigned first = 0; first < 256; first += 16) {
        Row row = row_at(values.data(), first);
        row.values = _mm256_xor_si256(row.values, ones);
        if (_mm256_testz_si256(row.values, row.values) == 0) {
            rows[count++] = row;
        }
    }
    std::size_t done = 0;
    for (std::uint8_t* to = out; size - done >= 32; done += 32, to += 24) {
        const Vector bytes = load_halves(text + done, text + done + 16);
        Vector numbers = ones;
        for (std::size_t i = 0; i < count; ++i) {
            numbers = _mm256_xor_si256(numbers, look_up(rows[i], bytes));
        }
        join(numbers, to);
    }
    decode_rest(values, text, size, out, done);
}
#endif
