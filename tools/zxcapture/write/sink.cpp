#include "write/sink.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/failure.hpp"
#include "show/output.hpp"
#include "stop.hpp"

namespace capture {
namespace {

constexpr std::size_t kFull = 256U << 10U;
constexpr mode_t kMode = 0666;  // less the umask
constexpr int kPatienceMs = 1000;

}  // namespace

Sink::Sink(const std::string& path, const std::optional<FileId>& read)
    : name_(path == "-" ? "standard output" : path),
      own_(path == "-" ? -1 : open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, kMode)),
      descriptor_(path == "-" ? STDOUT_FILENO : own_.get()) {
    struct stat st {};
    if (descriptor_ < 0 || fstat(descriptor_, &st) != 0) {
        fail();
    }
    if (S_ISREG(st.st_mode)) {
        if (read == FileId{st.st_dev, st.st_ino}) {
            throw tools::Failure("cannot write " + name_ + " while reading from it");
        }
        if (own_ && ftruncate(descriptor_, 0) != 0) {
            fail();
        }
    }
    buffer_.reserve(2 * kFull);
}

void Sink::add(std::span<const std::uint8_t> bytes) {
    buffer_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void Sink::end_record() {
    if (buffer_.size() >= kFull) {
        flush();
    }
}

void Sink::flush() {
    std::size_t done = 0;
    while (done < buffer_.size()) {
        const ssize_t count = write(descriptor_, buffer_.data() + done, buffer_.size() - done);
        if (count >= 0) {
            done += static_cast<std::size_t>(count);
        } else if (errno == EINTR) {
            wait_after_stop();
        } else {
            buffer_.clear();
            fail();
        }
    }
    written_ += done;
    buffer_.clear();
}

// A slow reader of a pipe gets the rest. One that has stopped reading cannot hold up the end.
void Sink::wait_after_stop() const {
    pollfd pipe{descriptor_, POLLOUT, 0};
    if (stop_requested() && poll(&pipe, 1, kPatienceMs) == 0) {
        throw OutputClosed();
    }
}

void Sink::fail() const {
    if (errno == EPIPE) {
        throw OutputClosed();
    }
    throw tools::system_failure("cannot write " + name_);
}

}  // namespace capture
