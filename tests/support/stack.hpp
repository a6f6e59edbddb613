// Looks for what a function leaves on its stack.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace zx::test {

// Sanitizers keep registers and temporaries on the stack. So does a program that is not optimised.
#if defined(__OPTIMIZE__) && !defined(ZX_ASAN) && !defined(ZX_TSAN)
inline constexpr bool kStackIsKeptClean = true;
#else
inline constexpr bool kStackIsKeptClean = false;
#endif

// Runs `work`. True when its stack contains the bytes of `secret` afterwards. Neither `work` nor
// its caller may put them on the stack themselves, so give it data on the heap.
inline bool is_left_on_stack(std::function<void()> work, const void* secret, std::size_t size) {
    alignas(4096) static std::uint8_t stack[std::size_t{1} << 20U];
    std::memset(stack, 0, sizeof stack);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, sizeof stack);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    if (pthread_create(&thread, &attributes, run, &work) != 0) {
        std::abort();
    }
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return memmem(stack, sizeof stack, secret, size) != nullptr;
}

}  // namespace zx::test
