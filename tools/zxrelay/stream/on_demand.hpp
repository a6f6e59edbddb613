// Channels that are opened when a client asks for them.
#pragma once

#include <functional>
#include <string>

namespace relay {

enum class Demand {
    coming,     // the channel is or will soon be open
    forbidden,  // the rules of the relay exclude it
    unknown,    // there is no such channel
};

// `name`: such as udp/239.1.1.1:1234. Any sender calls it, so it must not wait.
using OnDemand = std::function<Demand(const std::string& name)>;

}  // namespace relay
