// Where the lines go.
#pragma once

#include <cstddef>

namespace zxlog {

// Makes sure that the log has a descriptor of its own: without a file, a copy of standard error.
// Signal-safe; changes errno.
void take_descriptor();

// Hands one line to the kernel, or counts it as lost. Signal-safe; changes errno.
void write_line(const char* line, std::size_t size);

}  // namespace zxlog
