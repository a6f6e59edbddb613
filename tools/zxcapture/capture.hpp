// The work of the program, from the first frame to the counts.
#pragma once

#include "options.hpp"

namespace capture {

// Until the source ends, a signal comes or nobody reads on. Throws a Failure, after everything that
// was there is shown.
void run(const Options& options);

}  // namespace capture
