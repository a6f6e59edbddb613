// The socket that clients connect to.
#pragma once

#include <functional>
#include <string>

#include "server/log_limit.hpp"
#include "zxcommon.hpp"

namespace relay {

class Listener {
public:
    // Adds the socket to `epoll`, which must outlive the listener. Throws a Failure.
    Listener(zxcommon::Descriptor socket, zxcommon::Epoll& epoll);

    [[nodiscard]] int fd() const { return socket_.get(); }

    // Accepts every waiting connection. `take` becomes the owner of the descriptor. The listener
    // pauses when the process has no descriptor or memory left.
    void accept_all(const std::function<void(int fd, const std::string& peer)>& take);

    // Ends a pause. The owner calls it once a second.
    void resume();

private:
    void pause();

    zxcommon::Descriptor socket_;
    zxcommon::Epoll& epoll_;
    bool is_paused_ = false;
    LogLimit failed_{"attempts to accept a client have failed"};
};

}  // namespace relay
