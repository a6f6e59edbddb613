// Channels that are opened when a client asks for them.
#pragma once

#include <functional>
#include <string>

namespace relay {

enum class Demand {
    open,       // the channel is open, and stays so for two seconds at least
    coming,     // it will soon be open
    forbidden,  // the rules of the relay exclude it
    full,       // no more channels can be opened now
    failed,     // it could not be opened a moment ago
    unknown,    // there is no such channel
};

// `name`: such as udp/239.1.1.1:1234. `opens`: false only asks, and opens nothing. Any sender calls
// it, so it must not wait.
using OnDemand = std::function<Demand(const std::string& name, bool opens)>;

}  // namespace relay
