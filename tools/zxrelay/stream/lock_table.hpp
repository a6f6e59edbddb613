// The library's table of locks, for the status page.
#pragma once

#include <vector>

#include "common/mutex.hpp"
#include "stream/snapshot.hpp"

namespace relay {

// Who makes or destroys locks while the senders run holds this mutex.
tools::Mutex& lock_table_mutex();

// Holds the mutex during the call.
std::vector<LockView> view_locks();

}  // namespace relay
