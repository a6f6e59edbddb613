// Inputs that connect to a server and take the stream from there.
#pragma once

#include "config/url.hpp"
#include "input/repeated.hpp"

namespace relay {

// Gets the stream by HTTP.
class HttpPull final : public Repeated {
public:
    // A server that sends nothing for `timeout_seconds` is asked again.
    HttpPull(const Url& url, Entrance& entrance, unsigned timeout_seconds, bool once)
        : Repeated(entrance, once), url_(url.text), timeout_seconds_(timeout_seconds) {}

private:
    Played play() override;

    const std::string url_;
    const unsigned timeout_seconds_;
};

// Connects to a server that sends the stream as it is.
class TcpPull final : public Repeated {
public:
    TcpPull(const Url& url, Entrance& entrance, unsigned timeout_seconds, bool once)
        : Repeated(entrance, once), endpoint_(url.endpoint), timeout_seconds_(timeout_seconds) {}

private:
    Played play() override;

    const Endpoint endpoint_;
    const unsigned timeout_seconds_;
};

}  // namespace relay
