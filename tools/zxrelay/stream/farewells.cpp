#include "stream/farewells.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace relay {
namespace {

constexpr std::uint64_t kLongestUs = 1000000;

bool must_wait() {
    return errno == EAGAIN || errno == EINTR;
}

}  // namespace

void Farewells::say(zxcommon::Descriptor fd, std::string text, std::uint64_t now_us) {
    if (leaving_.size() == kMost) {
        leaving_.erase(leaving_.begin());
    }
    Leaving leaving{std::move(fd), std::move(text), now_us + kLongestUs};
    if (serve(leaving)) {
        if (epoll_.add(leaving.fd.get(), leaving.text.empty() ? EPOLLIN : EPOLLOUT)) {
            leaving_.push_back(std::move(leaving));
        }
    }
}

// Returns false when the connection can be closed.
bool Farewells::serve(Leaving& leaving) {
    const int fd = leaving.fd.get();
    if (!leaving.text.empty()) {
        const ssize_t sent =
            send(fd, leaving.text.data(), leaving.text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        leaving.text.erase(0, sent > 0 ? static_cast<std::size_t>(sent) : 0);
        if (!leaving.text.empty()) {
            return sent >= 0 || must_wait();
        }
        shutdown(fd, SHUT_WR);
    }
    char ignored[4096];
    const ssize_t got = recv(fd, ignored, sizeof ignored, MSG_DONTWAIT);
    return got > 0 || (got < 0 && must_wait());
}

void Farewells::handle(int fd) {
    const auto found = std::find_if(leaving_.begin(), leaving_.end(),
                                    [fd](const Leaving& one) { return one.fd.get() == fd; });
    if (found == leaving_.end()) {
        return;
    }
    const bool had_text = !found->text.empty();
    if (!serve(*found)) {
        leaving_.erase(found);
    } else if (had_text && found->text.empty()) {
        epoll_.mod(fd, EPOLLIN);
    }
}

void Farewells::close_overdue(std::uint64_t now_us) {
    while (next_due_us() <= now_us) {
        leaving_.erase(leaving_.begin());
    }
}

}  // namespace relay
