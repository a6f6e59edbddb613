// Takes a lock with any name and line, and compares every byte of the holder's note with the plain
// text.
#include <pthread.h>

#include "support.hpp"
#include "zxlock.h"

namespace {

using zx::fuzz::GuardedMemory;
using zx::fuzz::Input;
using zx::fuzz::require;

// The name is cut where the line would not fit; zeros follow.
std::string plain_note(const std::string& func, std::int32_t line) {
    const std::string digits = "," + std::to_string(line);
    std::string note = func.substr(0, ZXLOCK_HOLDER_SIZE - 1 - digits.size()) + digits;
    note.resize(ZXLOCK_HOLDER_SIZE);
    return note;
}

void require_note(const zxlock_ctt& lock, std::string note, int locked) {
    note.resize(sizeof lock.holder);
    require(std::string(lock.holder, sizeof lock.holder) == note, "who holds the lock");
    require(lock.locked == locked, "whether it is held");
}

void check(const std::string& func, std::int32_t line, bool is_unlocked_bare) {
    static GuardedMemory names(4096);
    static zxlock_ctt lock{};
    static const std::int32_t made = zxlock_api_init(&lock, "fuzzed");
    require(made == 0, "there is a lock");
    const char* const name = names.text(func);
    require(zxlock_api_obtain(&lock, name, line) == 0, "it is obtained");
    require_note(lock, plain_note(func, line), 1);
    if (is_unlocked_bare) {  // the next note must overwrite all of this one
        pthread_mutex_unlock(&lock.mutex);
        require(zxlock_api_obtain(&lock, "short", 2) == 0, "it is obtained again");
        require_note(lock, plain_note("short", 2), 1);
    }
    require(zxlock_api_release(&lock, name, line) == 0, "it is released");
    require_note(lock, "nolock", 0);
}

}  // namespace

// Names and lines around the sizes that are copied in one piece.
void zx_fuzz_sweep() {
    for (std::size_t length = 0; length <= 200; ++length) {
        for (const int line : {0, 7, 10, 99, 100, 999, 1000, 9999, 10000, -12, INT32_MIN}) {
            check(std::string(length, 'f'), line, length % 2 == 0);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, size});
    const bool is_unlocked_bare = input.take_below(2) != 0;
    const auto line = input.take<std::int32_t>();
    check(input.take_text(4000), line, is_unlocked_bare);
    return 0;
}
