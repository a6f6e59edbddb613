// The live screen on the terminal.
#pragma once

#include "connection.hpp"
#include "options.hpp"
#include "places.hpp"

namespace ctl {

// Shows the program until the user quits, also after it has ended. With --json it prints the
// answers instead.
void show_top(Connection& connection, const Place& place, const Options& options);

}  // namespace ctl
