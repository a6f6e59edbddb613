// The compression function of SHA-1, for a run of blocks in anybody's memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sha1.h"

namespace zx::sha1 {

using Words = std::uint32_t[SHA1_HASH_WORDS];

void process_portable(Words& hash, const std::uint8_t* blocks, std::size_t count);

#ifdef __x86_64__
// For processors with AVX2 only, and for at least one block.
void process_avx2(Words& hash, const std::uint8_t* blocks, std::size_t count);

// For processors with the SHA extensions only.
void process_ni(Words& hash, const std::uint8_t* blocks, std::size_t count);
#endif

}  // namespace zx::sha1
