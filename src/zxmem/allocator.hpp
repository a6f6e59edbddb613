// What the allocator and its report share.
#pragma once

#include <cstdint>

#include "internal/mutex.hpp"
#include "zxmem.h"

namespace zx::mem {

inline constexpr char kTag[] = "MEMRY_MAP";

extern NamedLock zxmem_zxlock_ctt;  // guards the list when flag_init is 1
// The oldest node, null when there is none.
extern memnode_ctt* first_memnode_ctt ZX_GUARDED_BY(zxmem_zxlock_ctt);
extern std::uint8_t flag_init;         // 1: the lock exists
extern std::uint8_t zxmem_enable_dbg;  // 1: tracking is on

// Shows all buffers to the diagnosis, from the youngest to the oldest, a few each time that it
// takes the lock. `is_new`: begins a new round; else it completes one that another thread has
// begun.
void show_buffers(bool is_new);

// False when the lock stays taken for a second: a signal handler that ends the program may have
// interrupted the thread that holds it.
[[nodiscard]] bool can_be_locked();

}  // namespace zx::mem
