#include "connection.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "common/failure.hpp"

namespace ctl {
namespace {

zxcommon::Descriptor connect_to(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw Connection::Refused(ENAMETOOLONG, "the path of the socket is too long");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    zxcommon::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int code = errno;
        throw Connection::Refused(code, code == ECONNREFUSED ? "nobody serves the socket"
                                        : code == EAGAIN     ? "too many others ask the program"
                                                             : std::strerror(code));
    }
    return fd;
}

std::string seconds_of(std::int64_t milliseconds) {
    std::string text = std::to_string(milliseconds / 1000);
    if (milliseconds % 1000 != 0) {
        text += '.' + std::to_string(1000 + milliseconds % 1000).substr(1);
    }
    return text + " s";
}

}  // namespace

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

Connection::Connection(const std::string& path) : fd_(connect_to(path)) {}

pid_t Connection::process() const {
    ucred its{};
    socklen_t size = sizeof its;
    return getsockopt(fd(), SOL_SOCKET, SO_PEERCRED, &its, &size) == 0 ? its.pid : 0;
}

void Connection::send(std::string_view question) const {
    const std::string line = std::string(question) + '\n';
    const ssize_t sent = ::send(fd(), line.data(), line.size(), MSG_NOSIGNAL);
    // A program that has closed the connection may have said why.
    if (sent < 0 && errno != EPIPE && errno != ECONNRESET) {
        throw tools::system_failure("the question cannot be sent");
    }
}

void Connection::receive() {
    constexpr std::size_t kStep = 65536;
    received_.erase(0, begin_);
    searched_ -= begin_;
    begin_ = 0;
    const std::size_t before = received_.size();
    received_.resize(before + kStep);
    const ssize_t size = recv(fd(), received_.data() + before, kStep, 0);
    received_.resize(before + (size > 0 ? static_cast<std::size_t>(size) : 0));
    has_ended_ = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
}

std::optional<std::string_view> Connection::next_line() {
    const std::size_t end = received_.find('\n', searched_);
    searched_ = end == std::string::npos ? received_.size() : end + 1;
    if ((end == std::string::npos ? received_.size() : end) - begin_ > kLongestAnswer) {
        throw tools::Failure("the answer is longer than 16 MiB");
    }
    if (end != std::string::npos) {
        const std::string_view line(received_.data() + begin_, end - begin_);
        begin_ = end + 1;
        return line;
    }
    if (has_ended_) {
        throw tools::Failure("the program has ended, or has closed the connection");
    }
    return std::nullopt;
}

std::string_view Connection::wait_for_line(std::int64_t timeout_ms) {
    const std::int64_t begin = now_ms();
    for (;;) {
        if (const auto line = next_line()) {
            return *line;
        }
        const std::int64_t left =
            timeout_ms == kForever ? kForever : timeout_ms - (now_ms() - begin);
        pollfd wait{fd(), POLLIN, 0};
        if (timeout_ms != kForever && left <= 0) {
            throw tools::Failure("no answer within " + seconds_of(timeout_ms));
        }
        if (poll(&wait, 1, static_cast<int>(left)) > 0) {
            receive();
        }
    }
}

}  // namespace ctl
