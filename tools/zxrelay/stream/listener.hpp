// The socket that clients connect to.
#pragma once

#include <functional>
#include <string>

#include "zxcommon.hpp"

namespace relay {

class Listener {
public:
    // Has the socket watched by `epoll`, which outlives the listener. Throws a Failure.
    Listener(zxcommon::Descriptor socket, zxcommon::Epoll& epoll);

    [[nodiscard]] int fd() const { return socket_.get(); }

    // Accepts every connection that waits. `take` owns the descriptor. When the process has no
    // descriptor left, the listener pauses.
    void accept_all(const std::function<void(int fd, const std::string& peer)>& take);

    // Ends a pause. To be called once a second.
    void resume();

private:
    void pause();

    zxcommon::Descriptor socket_;
    zxcommon::Epoll& epoll_;
    bool is_paused_ = false;
};

}  // namespace relay
