// What the allocator and its report share.
#pragma once

#include <cstdint>

#include "zxlock.h"
#include "zxmem.h"

namespace zx::mem {

inline constexpr char kTag[] = "MEMRY_MAP";

extern memnode_ctt* first_memnode_ctt;  // the oldest node, null when there is none
extern zxlock_ctt zxmem_zxlock_ctt;     // guards the list when flag_init is 1
extern std::uint8_t flag_init;          // 1: the lock exists
extern std::uint8_t zxmem_enable_dbg;   // 1: tracking is on

}  // namespace zx::mem
