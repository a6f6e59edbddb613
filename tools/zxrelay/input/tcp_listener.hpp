// Waits for sources that connect and send the stream.
#pragma once

#include "input/entrance.hpp"
#include "input/source.hpp"
#include "server/log_limit.hpp"

namespace relay {

// Takes one source at a time. One that is silent yields when another one waits.
class TcpListener final : public Source {
public:
    // `once`: it finishes at the end of the first source that has sent packets.
    TcpListener(zxcommon::Descriptor listener, Entrance& entrance, unsigned timeout_seconds,
                bool once);

    void run() override;

private:
    void serve();

    zxcommon::Descriptor listener_;
    Entrance& entrance_;
    const unsigned timeout_seconds_;
    const bool once_;
    LogLimit served_{"sources have come and gone"};
};

}  // namespace relay
