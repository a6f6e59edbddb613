#include "stream/lock_table.hpp"

#include <cstddef>

#include "zxlock.h"

namespace relay {
namespace {

// A thread that takes the lock writes its holder, and nothing protects readers from that. The text
// may be a mixture of two holders, which is good enough to display. Copying single volatile bytes
// keeps the compiler from calling a function of the C library, which the thread sanitizer would
// check.
template <std::size_t N>
[[gnu::no_sanitize_thread, gnu::noinline]] std::string text_of(const char (&field)[N]) {
    const volatile char* const from = field;
    char text[N];
    std::size_t size = 0;
    while (size < N && (text[size] = from[size]) != '\0') {
        ++size;
    }
    return {text, size};
}

}  // namespace

tools::Mutex& lock_table_mutex() {
    static tools::Mutex mutex;
    return mutex;
}

std::vector<LockView> view_locks() {
    const tools::MutexGuard lock(lock_table_mutex());
    std::vector<LockView> views;
    for (const zxlocklist_entry_ctt& entry : zxlocklist_ctt) {
        if (entry.used == 1) {
            views.push_back({text_of(entry.lock->name), text_of(entry.lock->holder)});
        }
    }
    return views;
}

}  // namespace relay
