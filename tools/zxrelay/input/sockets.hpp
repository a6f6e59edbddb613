// Opens what an input receives from.
#pragma once

#include <string>

#include "config/url.hpp"
#include "zxcommon.hpp"

namespace relay {

// A socket for datagrams, a listener, a file or standard input. Inputs that connect have none: they
// open their sockets when they run. Throws a Failure.
zxcommon::Descriptor open_input(const Url& url, const std::string& interface);

}  // namespace relay
