// What the diagnosis knows about the threads.
#pragma once

namespace zx::diag {

// In the child of a fork, which has none of the threads that were made.
void begin_threads_anew();

}  // namespace zx::diag
