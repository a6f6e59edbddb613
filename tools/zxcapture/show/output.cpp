#include "show/output.hpp"

#include <unistd.h>

#include "common/failure.hpp"
#include "stop.hpp"

namespace capture {
namespace {

constexpr std::size_t kFull = 64U << 10U;

}  // namespace

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
    std::size_t done = 0;
    while (done < buffer_.size()) {
        const ssize_t written = write(fd_, buffer_.data() + done, buffer_.size() - done);
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno == EPIPE || (errno == EINTR && stop_requested())) {
            buffer_.clear();
            throw OutputClosed();
        } else if (errno != EINTR) {
            buffer_.clear();
            throw tools::system_failure("cannot write to standard output");
        }
    }
    buffer_.clear();
}

}  // namespace capture
