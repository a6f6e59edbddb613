// What ends the program: one sentence for the person who started it.
#pragma once

#include <stdexcept>

namespace relay {

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace relay
