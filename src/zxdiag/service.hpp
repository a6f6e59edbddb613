// The thread that answers on a socket.
#pragma once

#include <cstddef>

namespace zx::diag {

// Puts a socket at `path` and starts the thread. Returns NULL, or what is wrong. Only one call at a
// time.
const char* start_service(const char* path);

// Ends the thread and removes the socket.
void stop_service();

// In the child of a fork, where the thread does not exist.
void forget_service();

[[nodiscard]] bool is_serving();

// True in the thread that answers on the socket.
[[nodiscard]] bool is_service_thread();

}  // namespace zx::diag
