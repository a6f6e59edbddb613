// The library's table of locks as the status page shows it.
#pragma once

#include <vector>

#include "stream/snapshot.hpp"

namespace relay {

// For the only thread that makes and destroys locks meanwhile.
std::vector<LockView> view_locks();

}  // namespace relay
