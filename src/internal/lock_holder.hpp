// Taking a lock and noting who holds it. This is inline, so that a constant holder becomes a
// constant note.
#pragma once

#include <endian.h>
#include <sys/sdt.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "zxdiag/hooks.hpp"
#include "zxdiag/lock_hooks.hpp"
#include "zxlock.h"

namespace zx::lock {

using Holder = char[ZXLOCK_HOLDER_SIZE];

inline constexpr std::size_t kUsualSize = 32;  // most holders end within these first bytes
inline constexpr char kFree[kUsualSize] = "nolock";

// Writes "func,line" for any name and line. The name is cut when both do not fit.
[[gnu::cold, gnu::noinline]] inline void write_any_holder(Holder& out, const char* func, int line) {
    char digits[sizeof "-2147483648"];
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), line).ptr;
    const auto digit_count = static_cast<std::size_t>(end - digits);
    const std::size_t length = strnlen(func, sizeof out - 2 - digit_count);
    std::memset(out, 0, sizeof out);
    std::memcpy(out, func, length);
    out[length] = ',';
    std::memcpy(out + length + 1, digits, digit_count);
}

// "00" to "99", the first digit in the less significant byte.
struct DigitPairs {
    consteval DigitPairs() {
        for (std::uint32_t i = 0; i < 100; ++i) {
            rows[i] = static_cast<std::uint16_t>(('0' + i / 10) | ('0' + i % 10) << 8U);
        }
    }
    std::uint16_t rows[100]{};
};
inline constexpr DigitPairs kDigitPairs;

// A comma, the digits of a number below 10000 and zeros, the first byte least significant.
constexpr std::uint64_t comma_and_digits(std::uint32_t number) {
    const std::uint32_t digits = kDigitPairs.rows[number / 100] |
                                 static_cast<std::uint32_t>(kDigitPairs.rows[number % 100]) << 16U;
    const unsigned blanks =
        (number < 10 ? 1U : 0U) + (number < 100 ? 1U : 0U) + (number < 1000 ? 1U : 0U);
    return ',' | static_cast<std::uint64_t>(digits >> 8U * blanks) << 8U;
}
static_assert(comma_and_digits(0) == 0x302C && comma_and_digits(40) == 0x30342C);
static_assert(comma_and_digits(123) == 0x3332312C && comma_and_digits(9870) == 0x303738392C);

// Copies N to 2 * N bytes in two pieces, which may overlap.
template <std::size_t N>
void copy_ends(char* out, const char* text, std::size_t length) {
    std::memcpy(out, text, N);
    std::memcpy(out + length - N, text + length - N, N);
}

// Copies up to 32 bytes.
inline void copy_short(char* out, const char* text, std::size_t length) {
    if (length >= 16) {
        copy_ends<16>(out, text, length);
    } else if (length >= 8) {
        copy_ends<8>(out, text, length);
    } else if (length >= 4) {
        copy_ends<4>(out, text, length);
    } else {
        for (std::size_t i = 0; i < length; ++i) {
            out[i] = text[i];
        }
    }
}

// The same for the usual names and lines, over the text "nolock". Every lock takes this path: a
// formatted print would cost several times as much as the mutex, and each call into the C library a
// fifth of it. The number and its zeros cover "nolock" even after an empty name.
inline void write_holder(Holder& out, const char* func, int line) {
    const std::size_t length = std::strlen(func);
    if (length > kUsualSize || line < 0 || line > 9999) [[unlikely]] {
        write_any_holder(out, func, line);
        return;
    }
    copy_short(out, func, length);
    const std::uint64_t rest = htole64(comma_and_digits(static_cast<std::uint32_t>(line)));
    std::memcpy(out + length, &rest, sizeof rest);
}

// When the last of the usual bytes is zero, all bytes after it are zero, too.
inline void write_free(Holder& out) {
    const bool is_longer = out[kUsualSize - 1] != '\0';
    std::memcpy(out, kFree, kUsualSize);
    if (is_longer) [[unlikely]] {
        std::memset(out + kUsualSize, 0, sizeof out - kUsualSize);
    }
}

[[nodiscard]] inline bool is_usable(const zxlock_ctt* lock) {
    return lock != nullptr && lock->initialised == 1;
}

// The mutex alone, without a note of the holder. For usable locks only. The probes are nops; the
// record begins with the name, so they need no other argument.
inline void take(zxlock_ctt& lock, const char* func, int line) {
    DTRACE_PROBE1(zxcommon, lock_wanted, &lock);
    if (!diag::is_on()) [[likely]] {
        pthread_mutex_lock(&lock.mutex);
    } else if (pthread_mutex_trylock(&lock.mutex) != 0) {
        diag::wait_for_mutex(lock, func, line);
    } else if (!diag::note_taken(lock)) {
        diag::note_any_taken(lock, func, line);
    }
    DTRACE_PROBE1(zxcommon, lock_taken, &lock);
}

// Returns 0: the unlock of a mutex with default attributes cannot fail.
inline int give_back(zxlock_ctt& lock) {
    DTRACE_PROBE1(zxcommon, lock_released, &lock);
    if (diag::is_on()) [[unlikely]] {
        diag::note_released(lock);
    }
    return pthread_mutex_unlock(&lock.mutex);
}

// For usable locks only.
inline void obtain(zxlock_ctt& lock, const char* func, int line) {
    take(lock, func, line);
    if (lock.locked != 0) [[unlikely]] {
        // Somebody unlocked the bare mutex of a lock that was obtained.
        std::memset(lock.holder, 0, sizeof lock.holder);
    }
    lock.locked = 1;
    write_holder(lock.holder, func, line);
}

inline int release(zxlock_ctt& lock) {
    // The fields are set before the unlock: after it they belong to the next holder.
    lock.locked = 0;
    write_free(lock.holder);
    return give_back(lock);
}

}  // namespace zx::lock
