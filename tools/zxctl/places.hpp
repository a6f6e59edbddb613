// The sockets on which programs answer questions about themselves.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "options.hpp"

namespace ctl {

struct Place {
    std::string path;
    std::string name;     // of the program, from the name of the socket
    pid_t process = 0;    // 0: unknown
    std::string trouble;  // why nobody can ask there; "": it is served
    bool is_stale = false;
};

// The sockets in the directories of the options, sorted by program and process. Throws a Failure
// when a directory that the user has named cannot be read.
[[nodiscard]] std::vector<Place> find_places(const Options& options);

// The one that the user means. Throws a Failure when there is none, or more than one.
[[nodiscard]] Place place_of(const Options& options);

}  // namespace ctl
