// What happens when a fatal signal arrives.
#pragma once

namespace zx::diag {

// True while the lines in memory are written because of a fatal signal.
[[nodiscard]] bool is_crashing();

// Takes back what handle_crashes() in hooks.hpp has changed, unless the program has changed it
// again.
void leave_crashes_alone();

}  // namespace zx::diag
