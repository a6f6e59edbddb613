// What the diagnosis knows about the shared lists.
#pragma once

namespace zx::diag {

// In the child of a fork, which has the same lists, and none of the threads that counted them.
void begin_lists_anew();

}  // namespace zx::diag
