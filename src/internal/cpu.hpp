// What the running processor offers beyond the portable code, and the choice among implementations.
//
// Several implementations of one thing are functions with one signature, or records of functions. A
// constexpr table of choices lists them, the fastest first and the portable one last:
//
//     constexpr zx::Choice<Sum*> kSums[] = {
//     #if defined __x86_64__
//         {zx::kAvx2, 0, sum_avx2},
//     #elif defined __aarch64__
//         {zx::kNeon, 0, sum_neon},
//     #endif
//         {zx::kPortable, 0, sum_portable},
//     };
//     const auto result = zx::pick(kSums)(data, size);
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#if defined __x86_64__
#include <cpuid.h>
#elif defined __aarch64__
#include <sys/auxv.h>
#endif

namespace zx {

using CpuFeatures = std::uint32_t;

inline constexpr CpuFeatures kPortable = 0;
inline constexpr CpuFeatures kAes = 1U << 0U;
inline constexpr CpuFeatures kSha = 1U << 1U;
inline constexpr CpuFeatures kClmul = 1U << 2U;  // carry-less multiplication
inline constexpr CpuFeatures kAvx2 = 1U << 3U;
inline constexpr CpuFeatures kVpclmul = 1U << 4U;
inline constexpr CpuFeatures kVpclmul512 = 1U << 5U;
inline constexpr CpuFeatures kNeon = 1U << 6U;
inline constexpr CpuFeatures kCpuAsked = 1U << 31U;

// ZX_CPU in the environment hides features of the processor: all ("portable") or, on x86-64 only,
// everything wider than 128 bits ("narrow"), or everything wider than 256 bits and the instructions
// for SHA ("avx2"). So the tests run all paths on one machine, and a user can compare them.
[[nodiscard, gnu::cold, gnu::noinline]] inline CpuFeatures ask_cpu() {
    CpuFeatures found = kCpuAsked;
    const char* const given = secure_getenv("ZX_CPU");
    const std::string_view wish = given != nullptr ? given : "";
    if (wish == "portable") {
        return found;
    }
    [[maybe_unused]] const auto note = [&found](CpuFeatures feature, bool is_there) {
        found |= is_there ? feature : 0;
    };
#if defined __x86_64__
    const auto has = [&found](CpuFeatures features) { return (features & ~found) == 0; };
    __builtin_cpu_init();
    note(kAvx2, __builtin_cpu_supports("avx2") != 0 && wish != "narrow");
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    // All of these paths also need SSSE3 and SSE4.1, to shuffle bytes.
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_SSSE3) != 0 &&
        (ecx & bit_SSE4_1) != 0) {
        note(kAes, (ecx & bit_AES) != 0);
        note(kClmul, (ecx & bit_PCLMUL) != 0);
        if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) {
            note(kSha, (ebx & bit_SHA) != 0 && wish != "avx2");
            note(kVpclmul, (ecx & bit_VPCLMULQDQ) != 0 && has(kAvx2 | kClmul));
            note(kVpclmul512, has(kVpclmul) && wish != "avx2" &&
                                  __builtin_cpu_supports("avx512f") != 0 &&
                                  __builtin_cpu_supports("avx512bw") != 0);
        }
    }
#elif defined __aarch64__
    const unsigned long all = getauxval(AT_HWCAP);
    note(kNeon, (all & HWCAP_ASIMD) != 0);
    note(kAes, (all & HWCAP_AES) != 0);
    note(kSha, (all & HWCAP_SHA1) != 0);
    note(kClmul, (all & HWCAP_PMULL) != 0);
#endif
    return found;
}

// The first call may come in a signal handler, or in several threads at once. Each caller that
// finds nothing asks the processor, and all get the same answer. It is one word, so it needs no
// lock.
inline constinit std::atomic<CpuFeatures> g_cpu_features{0};
static_assert(std::atomic<CpuFeatures>::is_always_lock_free);

[[nodiscard]] inline CpuFeatures cpu_features() {
    CpuFeatures features = g_cpu_features.load(std::memory_order_relaxed);
    if (features == 0) [[unlikely]] {
        features = ask_cpu();
        g_cpu_features.store(features, std::memory_order_relaxed);
    }
    return features;
}

// An implementation for processors that have all of `needed`, and for sizes from `min_size` on.
template <typename Way>
struct Choice {
    CpuFeatures needed;
    std::size_t min_size;
    Way way;
};

// Picks the first entry that the processor can run and that suits `size`. The last entry is
// portable and suits every size.
template <typename Way, std::size_t N>
[[nodiscard, gnu::always_inline]] inline Way pick(const Choice<Way> (&choices)[N],
                                                  std::size_t size = SIZE_MAX) {
    const CpuFeatures features = cpu_features();
    for (std::size_t i = 0; i + 1 < N; ++i) {
        if ((choices[i].needed & ~features) == 0 && size >= choices[i].min_size) {
            return choices[i].way;
        }
    }
    return choices[N - 1].way;
}

}  // namespace zx
