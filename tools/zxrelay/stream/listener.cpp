#include "stream/listener.hpp"

#include <cerrno>
#include <cstring>
#include <utility>

#include "common/failure.hpp"
#include "stream/net.hpp"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";

}  // namespace

Listener::Listener(zxcommon::Descriptor socket, zxcommon::Epoll& epoll)
    : socket_(std::move(socket)), epoll_(epoll) {
    if (!epoll_.add(fd(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for clients");
    }
}

void Listener::accept_all(const std::function<void(int fd, const std::string& peer)>& take) {
    std::string peer;
    int connection;
    while ((connection = accept_connection(fd(), peer)) >= 0) {
        take(connection, peer);
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        if (failed_.admits()) {
            log({Level::error, kTag}, "cannot accept another client: %s", std::strerror(errno));
        }
        pause();
    }
}

void Listener::pause() {
    epoll_.del(fd());
    is_paused_ = true;
}

void Listener::resume() {
    failed_.report_when_due();
    if (is_paused_ && epoll_.add(fd(), EPOLLIN)) {
        is_paused_ = false;
    }
}

}  // namespace relay
