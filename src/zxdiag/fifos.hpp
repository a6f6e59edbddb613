// What the diagnosis knows about the block FIFOs.
#pragma once

namespace zx::diag {

// In the child of a fork, which has the same FIFOs, and none of the threads that counted them.
void begin_fifos_anew();

}  // namespace zx::diag
