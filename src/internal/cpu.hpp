// What the running processor offers beyond the portable code.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#ifdef __x86_64__
#include <cpuid.h>
#endif

namespace zx {

struct alignas(std::uint64_t) CpuFeatures {
    bool asked = false;
    bool avx2 = false;
    bool aes = false;
    bool pclmul = false;
    bool sha = false;
    bool vpclmul = false;
    bool vpclmul512 = false;
};

// ZX_CPU in the environment makes the processor answer that there is nothing ("portable"), nothing
// wider than 128 bits ("narrow"), or nothing wider than 256 bits and nothing for SHA ("avx2"): so
// the tests run all paths on one machine, and a user can compare them.
[[nodiscard]] inline CpuFeatures ask_cpu() {
    CpuFeatures found{.asked = true};
#ifdef __x86_64__
    const char* const given = secure_getenv("ZX_CPU");
    const std::string_view wish = given != nullptr ? given : "";
    if (wish == "portable") {
        return found;
    }
    __builtin_cpu_init();
    found.avx2 = __builtin_cpu_supports("avx2") != 0 && wish != "narrow";
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    // All of these paths shuffle bytes with SSSE3 and SSE4.1, too.
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_SSSE3) != 0 &&
        (ecx & bit_SSE4_1) != 0) {
        found.aes = (ecx & bit_AES) != 0;
        found.pclmul = (ecx & bit_PCLMUL) != 0;
        if (__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) {
            found.sha = (ebx & bit_SHA) != 0 && wish != "avx2";
            found.vpclmul = (ecx & bit_VPCLMULQDQ) != 0 && found.avx2 && found.pclmul;
            found.vpclmul512 = found.vpclmul && wish != "avx2" &&
                               __builtin_cpu_supports("avx512f") != 0 &&
                               __builtin_cpu_supports("avx512bw") != 0;
        }
    }
#endif
    return found;
}

// A first call may be in a signal handler, or in several threads at once: each that finds nothing
// asks, and all get the same answer. It is one word, so that no lock is needed.
inline constinit std::atomic<CpuFeatures> g_cpu_features{};
static_assert(std::atomic<CpuFeatures>::is_always_lock_free);

[[nodiscard]] inline CpuFeatures cpu_features() {
    CpuFeatures features = g_cpu_features.load(std::memory_order_relaxed);
    if (!features.asked) [[unlikely]] {
        features = ask_cpu();
        g_cpu_features.store(features, std::memory_order_relaxed);
    }
    return features;
}

}  // namespace zx
