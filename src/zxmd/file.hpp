// What the modules of files share.
#pragma once

#include "internal/log.hpp"

namespace zx::md {

// True when both are there; otherwise what is missing was logged.
[[nodiscard]] bool has_target(const char* path, const void* buf, Caller caller = {});

}  // namespace zx::md
