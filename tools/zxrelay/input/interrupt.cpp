#include "input/interrupt.hpp"

#include <poll.h>

#include <iterator>

namespace relay {

void Interrupt::raise() {
    is_raised_ = true;
    event_.set();
}

// poll() needs no descriptor of its own, and takes files, too.
bool Interrupt::wait(int fd, int timeout_ms, int other) const {
    pollfd waiting[] = {{fd, POLLIN, 0}, {event_.fd(), POLLIN, 0}, {other, POLLIN, 0}};
    return poll(waiting, std::size(waiting), timeout_ms) > 0 && waiting[0].revents != 0;
}

bool is_readable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

}  // namespace relay
