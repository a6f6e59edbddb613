// Runs the program, from the first frame to the counts.
#pragma once

#include "options.hpp"

namespace capture {

// Returns when the source ends, a signal arrives or the reader of the output closes it. On an
// error, shows all frames up to it and then throws a Failure.
void run(const Options& options);

}  // namespace capture
