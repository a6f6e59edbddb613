#include "stream/door.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/failure.hpp"
#include "stream/net.hpp"
#include "stream/wait.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kEventsPerTurn = 64;
constexpr int kClientsPerTurn = 64;
constexpr std::uint64_t kPauseUs = 1000000;
constexpr std::uint64_t kReportUs = 60000000;

}  // namespace

Door::Door(zxcommon::Descriptor listener, Admission& admission, std::string refusal,
           GuestStats& stats, Take take)
    : socket_(std::move(listener)),
      closed_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      admission_(admission),
      refusal_(std::move(refusal)),
      stats_(stats),
      take_(std::move(take)),
      farewells_(epoll_) {
    if (!epoll_.add(socket_.get(), EPOLLIN) || !epoll_.add(closed_.get(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for clients");
    }
}

void Door::close() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(closed_.get(), &one, sizeof one);
}

void Door::run(zxcommon::StopRequest& stop) {
    while (!stop.seen()) {
        turn();
    }
}

void Door::turn() {
    epoll_event room[kEventsPerTurn];
    const auto events = epoll_.wait(room, wait_ms());
    now_us_ = zxtime_api_upTimeUs();
    for (const epoll_event& event : events) {
        if (event.data.fd == socket_.get()) {
            accept_all();
        } else {
            farewells_.handle(event.data.fd);
        }
    }
    farewells_.close_overdue(now_us_);
    report_refused();
    update_listening();
}

int Door::wait_ms() const {
    const std::uint64_t now = zxtime_api_upTimeUs();
    std::uint64_t due = farewells_.next_due_us();
    due = resume_us_ > now ? std::min(due, resume_us_) : due;
    due = refused_ != 0 ? std::min(due, reported_us_ + kReportUs) : due;
    return wait_until(due, now);
}

void Door::accept_all() {
    for (int i = 0; i < kClientsPerTurn && !farewells_.full(); ++i) {
        std::string peer;
        zxcommon::Descriptor fd(accept_connection(socket_.get(), peer));
        if (!fd) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                log({Level::error, kTag}, "cannot accept another client: %s", std::strerror(errno));
                resume_us_ = now_us_ + kPauseUs;
            }
            return;
        }
        if (Ticket ticket = admission_.enter(); ticket != nullptr) {
            prepare_for_stream(fd.get());
            take_({++last_number_, std::move(fd), std::move(peer), std::move(ticket)});
        } else {
            refuse(std::move(fd));
        }
    }
}

void Door::refuse(zxcommon::Descriptor fd) {
    ++refused_;
    ++stats_.refused_clients;
    farewells_.say(std::move(fd), refusal_, now_us_);
}

void Door::report_refused() {
    if (refused_ != 0 && now_us_ - reported_us_ >= kReportUs) {
        log({Level::warning, kTag}, "refused %llu clients: there are %u already, see --max-clients",
            static_cast<unsigned long long>(refused_), admission_.limit());
        reported_us_ = now_us_;
        refused_ = 0;
    }
}

// While nobody else can be taken, the others wait in the queue of the socket.
void Door::update_listening() {
    const bool should_listen = now_us_ >= resume_us_ && !farewells_.full();
    if (should_listen != is_listening_) {
        const int fd = socket_.get();
        const bool is_done = should_listen ? epoll_.add(fd, EPOLLIN) : epoll_.del(fd);
        is_listening_ = is_done ? should_listen : is_listening_;
    }
}

}  // namespace relay
