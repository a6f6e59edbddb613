#include "show/output.hpp"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>

#include "common/failure.hpp"
#include "stop.hpp"

namespace capture {
namespace {

constexpr std::size_t kFull = 64U << 10U;
constexpr int kPatienceMs = 1000;

// What could not be written is not tried again.
struct Emptied {
    std::string& buffer;
    ~Emptied() { buffer.clear(); }
};

}  // namespace

bool write_all(int fd, std::string& buffer) {
    const Emptied emptied{buffer};
    std::string_view bytes = buffer;
    while (!bytes.empty()) {
        std::size_t size = bytes.size();
        if (stop_requested()) {
            pollfd reader{fd, POLLOUT, 0};
            if (poll(&reader, 1, kPatienceMs) == 0) {
                throw OutputClosed();
            }
            size = std::min<std::size_t>(size, PIPE_BUF);  // a pipe with room takes it at once
        }
        const ssize_t count = write(fd, bytes.data(), size);
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            throw OutputClosed();
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

Output::Output(int fd) : fd_(fd) {
    buffer_.reserve(2 * kFull);
}

void Output::add(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kFull) {
        flush();
    }
}

void Output::flush() {
    if (!write_all(fd_, buffer_)) {
        throw tools::system_failure("cannot write to standard output");
    }
}

}  // namespace capture
