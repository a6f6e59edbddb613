#include "stream/newcomer.hpp"

#include <sys/socket.h>

#include <cerrno>

namespace relay {
namespace {

constexpr std::uint64_t kSilenceUs = 200000;
constexpr std::uint64_t kPatienceUs = 5000000;

}  // namespace

std::uint64_t Newcomer::due_us() const {
    return since_us_ + (is_silent() ? kSilenceUs : kPatienceUs);
}

Newcomer::Wish Newcomer::overdue_wish() const {
    if (is_silent()) {
        return Wish::raw;
    }
    return is_waiting_ ? Wish::no_channel : Wish::late;
}

void Newcomer::wait_for_channel(std::uint64_t now_us) {
    is_waiting_ = true;
    since_us_ = now_us;
}

Newcomer::Wish Newcomer::listen() {
    char bytes[4096];
    // A client of the raw stream reads its own requests: this leaves them in the socket.
    const int flags = is_silent() ? MSG_DONTWAIT | MSG_PEEK : MSG_DONTWAIT;
    const ssize_t got = recv(guest.fd.get(), bytes, is_silent() ? 1 : sizeof bytes, flags);
    if (got <= 0) {
        return got < 0 && (errno == EAGAIN || errno == EINTR) ? Wish::unknown : Wish::gone;
    }
    if (is_silent()) {
        if (bytes[0] < 'A' || bytes[0] > 'Z') {
            return Wish::raw;
        }
        http_ = std::make_unique<HttpReader>();
        return listen();
    }
    http_->feed({bytes, static_cast<std::size_t>(got)});
    return request().state == HttpRequest::State::partial ? Wish::unknown : Wish::http;
}

}  // namespace relay
