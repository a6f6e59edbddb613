// Counting locks.
#pragma once

#include <cstdint>

#include "zxlock.h"

namespace zx::diag {

// Called when counting begins. The first one in a process empties the tables, in which the child of
// a fork finds those of its parent; the second follows when the hooks are called.
void clear_locks();
void begin_to_count_locks();

// When the calling thread took the lock, which it holds. 0: that is not traced.
[[nodiscard]] std::uint64_t traced_since_ns(const zxlock_ctt& lock);

// In the child of a fork. Nothing is touched that costs time.
void forget_locks_of_parent();

}  // namespace zx::diag
