// What the program does for each command.
#pragma once

#include "options.hpp"

namespace ctl {

// Does what the command line asks for, until it is done. Throws an exception when there is no
// answer, or when the program calls the question wrong.
void run(const Options& options);

}  // namespace ctl
