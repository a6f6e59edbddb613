// Where the lines go.
#pragma once

#include <cstddef>

namespace zxlog {

// Hands one line to the kernel, or counts it as lost. Signal-safe; changes errno.
void write_line(const char* line, std::size_t size);

}  // namespace zxlog
