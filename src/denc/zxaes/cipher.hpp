// The cipher under the operations: key schedules and whole blocks, on each kind of processor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "internal/cpu.hpp"

namespace zx::aes {

inline constexpr std::size_t kBlockSize = 16;
inline constexpr std::size_t kBlockWords = kBlockSize / sizeof(std::uint32_t);

enum class Mode { ecb, cbc, cfb };
enum class Way { encrypt, decrypt };

// At most so many blocks are read before the first of them is written.
inline constexpr std::size_t kTogether = 8;

// `blocks` blocks from `in` to `out`. None of them is changed before it is read: the buffers are
// the same, `out` begins before `in`, or it begins kTogether blocks or more after it. `keys` are
// the words of `rounds` + 1 round keys. `iv`, a block that ECB does without, is chained on.
//
// For decryption the round keys are those of the equivalent inverse cipher (FIPS 197, 5.3.5), in
// the order of their use. CFB decrypts in both ways.
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

// One way to do it.
struct Cipher {
    void (*crypt)(Mode mode, Way way, const Work& work);

    // The S-box on each byte of a word.
    std::uint32_t (*substitute)(std::uint32_t word);

    // InvMixColumns on each of some words, a multiple of 4.
    void (*unmix)(std::uint32_t* words, std::size_t count);
};

// By tables.
extern const Cipher kByTables;

#ifdef __x86_64__
// By the instructions for AES, which take the same time whatever the bytes are.
extern const Cipher kByInstructions;
#endif

inline constexpr Choice<const Cipher*> kCiphers[] = {
#ifdef __x86_64__
    {kAes, 0, &kByInstructions},
#endif
    {kPortable, 0, &kByTables},
};

[[nodiscard]] inline const Cipher& cipher() {
    return *pick(kCiphers);
}

}  // namespace zx::aes
