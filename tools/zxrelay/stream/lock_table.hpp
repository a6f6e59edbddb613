// The library's table of locks, for the status page.
#pragma once

#include <vector>

#include "stream/snapshot.hpp"

namespace relay {

// No other thread may make or destroy locks during the call.
std::vector<LockView> view_locks();

}  // namespace relay
