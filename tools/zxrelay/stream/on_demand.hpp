// Channels that are opened for the clients who ask for them.
#pragma once

#include <string>

namespace relay {

class OnDemand {
public:
    OnDemand() = default;
    virtual ~OnDemand() = default;
    OnDemand(const OnDemand&) = delete;
    OnDemand& operator=(const OnDemand&) = delete;

    enum class Result {
        coming,     // the channel is there, or the senders get it soon
        forbidden,  // its address is not allowed, or there are too many of these channels
        unknown     // no such path
    };

    // A client asks for a path that is no channel yet, such as "/udp/239.1.1.1:1234". The name of
    // the channel will be the path without its first "/". If it cannot be opened, nothing comes.
    // Any thread may call it; it does not wait.
    virtual Result ask(const std::string& path) = 0;
};

}  // namespace relay
