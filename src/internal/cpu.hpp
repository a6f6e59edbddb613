// What the running processor offers beyond the portable code.
#pragma once

#include <cstdlib>
#include <cstring>

#ifdef __x86_64__
#include <cpuid.h>
#endif

namespace zx {

struct CpuFeatures {
    bool avx2 = false;
    bool aes = false;
    bool pclmul = false;
    bool sha = false;
};

// The first call asks the processor. ZX_CPU=portable in the environment makes it answer that there
// is nothing: so the tests run both paths on one machine, and a user can compare them.
[[nodiscard]] inline const CpuFeatures& cpu_features() {
    static const CpuFeatures features = [] {
        CpuFeatures found;
#ifdef __x86_64__
        const char* const wish = secure_getenv("ZX_CPU");
        if (wish != nullptr && std::strcmp(wish, "portable") == 0) {
            return found;
        }
        __builtin_cpu_init();
        found.avx2 = __builtin_cpu_supports("avx2") != 0;
        unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
        // All of these paths shuffle bytes with SSSE3 and SSE4.1, too.
        if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_SSSE3) != 0 &&
            (ecx & bit_SSE4_1) != 0) {
            found.aes = (ecx & bit_AES) != 0;
            found.pclmul = (ecx & bit_PCLMUL) != 0;
            found.sha =
                __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & bit_SHA) != 0;
        }
#endif
        return found;
    }();
    return features;
}

}  // namespace zx
