// The compression function of SHA-1, for blocks that lie one after another in any memory.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sha1.h"

namespace zx::sha1 {

using Words = std::uint32_t[SHA1_HASH_WORDS];

using Process = void(Words& hash, const std::uint8_t* blocks, std::size_t count);

Process process_portable;

#if defined __x86_64__
Process process_avx2;  // for at least one block
Process process_ni;
#elif defined __aarch64__
Process process_armv8;
#endif

}  // namespace zx::sha1
