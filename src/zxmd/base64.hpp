// Base64 over many bytes at a time, for processors that can.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zx::md {

#ifdef __x86_64__
// For processors with AVX2 only.

// Encodes whole steps of 24 bytes, as long as 28 can be read. Returns how many bytes it took.
std::size_t encode_avx2(const char* alphabet, const std::uint8_t* in, std::size_t size, char* out);

// Decodes whole steps of 32 characters by the values of all 256, where 63 is the value of those
// that are not in the alphabet. Returns how many it took.
std::size_t decode_avx2(const std::uint8_t* values, const char* text, std::size_t size,
                        std::uint8_t* out);
#endif

}  // namespace zx::md
