// The cipher itself: key schedules and whole blocks, on each kind of processor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "internal/cpu.hpp"

namespace zx::aes {

inline constexpr std::size_t kBlockSize = 16;
inline constexpr std::size_t kBlockWords = kBlockSize / sizeof(std::uint32_t);

enum class Mode { ecb, cbc, cfb };
enum class Way { encrypt, decrypt };

// At most this many blocks are read before the first of them is written.
inline constexpr std::size_t kTogether = 8;

// Work on `blocks` blocks, from `in` to `out`. No block may be overwritten before it is read. So
// the buffers are the same, or `out` begins before `in`, or it begins at least kTogether blocks
// after it. `keys` are the words of `rounds` + 1 round keys. `iv` is one block, updated on the way;
// ECB needs none.
//
// For decryption the round keys are those of the equivalent inverse cipher (FIPS 197, 5.3.5), in
// the order of their use. CFB runs the rounds of decryption in both directions, with the round keys
// of `keys`, whichever direction they were made for.
struct Work {
    const std::uint32_t* keys;
    unsigned rounds;
    std::uint8_t* iv;
    const std::uint8_t* in;
    std::uint8_t* out;
    std::size_t blocks;
};

template <typename By, Mode kMode>
void run_way(Way way, const Work& work) {
    if (way == Way::encrypt) {
        By::template run<kMode, Way::encrypt>(work);
    } else {
        By::template run<kMode, Way::decrypt>(work);
    }
}

// What Cipher::crypt points to: By::run() with the mode and the way as constants.
template <typename By>
void crypt_by(Mode mode, Way way, const Work& work) {
    switch (mode) {
        case Mode::ecb:
            return run_way<By, Mode::ecb>(way, work);
        case Mode::cbc:
            return run_way<By, Mode::cbc>(way, work);
        case Mode::cfb:
            return run_way<By, Mode::cfb>(way, work);
    }
}

// An implementation of the cipher.
struct Cipher {
    void (*crypt)(Mode mode, Way way, const Work& work);

    // Applies the S-box to each byte of a word.
    std::uint32_t (*substitute)(std::uint32_t word);

    // Applies InvMixColumns to each of `count` words, a multiple of 4.
    void (*unmix)(std::uint32_t* words, std::size_t count);
};

// By tables.
extern const Cipher kByTables;

#if defined __x86_64__ || defined __aarch64__
// By the processor's own instructions. These take the same time for all data.
extern const Cipher kByInstructions;
#endif

inline constexpr Choice<const Cipher*> kCiphers[] = {
#if defined __x86_64__ || defined __aarch64__
    {kAes, 0, &kByInstructions},
#endif
    {kPortable, 0, &kByTables},
};

[[nodiscard]] inline const Cipher& cipher() {
    return *pick(kCiphers);
}

}  // namespace zx::aes
