#include "input/interrupt.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <iterator>

#include "common/failure.hpp"

namespace relay {

Interrupt::Interrupt() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!descriptor_) {
        throw tools::system_failure("no descriptor for an input");
    }
}

void Interrupt::raise() {
    is_raised_ = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(fd(), &one, sizeof one);
}

// poll() needs no descriptor of its own, and takes files, too.
bool Interrupt::wait(int fd, int timeout_ms, int other) const {
    pollfd waiting[] = {{fd, POLLIN, 0}, {descriptor_.get(), POLLIN, 0}, {other, POLLIN, 0}};
    return poll(waiting, std::size(waiting), timeout_ms) > 0 && waiting[0].revents != 0;
}

bool is_readable(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, 0) > 0;
}

}  // namespace relay
