// What the sources about files share.
#pragma once

#include "internal/log.hpp"

namespace zx::md {

// True when both are given. Otherwise logs what is missing.
[[nodiscard]] bool has_target(const char* path, const void* buf, Caller caller = {});

}  // namespace zx::md
