#include "stream/door.hpp"

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

unsigned status_for(Admission::Verdict verdict) {
    switch (verdict) {
        case Admission::Verdict::not_allowed:
            return HTTP_STATUS_FORBIDDEN;
        case Admission::Verdict::too_many_of_address:
            return HTTP_STATUS_TOO_MANY_REQUESTS;
        default:
            return HTTP_STATUS_SERVICE_UNAVAILABLE;
    }
}

const char* reason_for(Admission::Verdict verdict) {
    switch (verdict) {
        case Admission::Verdict::not_allowed:
            return "--allow names no network of theirs";
        case Admission::Verdict::too_many_of_address:
            return "their addresses have as many already as --max-per-address allows";
        default:
            return "there are as many already as --max-clients or the limit of open files allows";
    }
}

}  // namespace

Door::Door(zxcommon::Descriptor listener, Admission& admission, Site site, GuestStats& stats,
           Take take)
    : socket_(std::move(listener)),
      admission_(admission),
      site_(std::move(site)),
      stats_(stats),
      take_(std::move(take)),
      farewells_(epoll_) {
    if (!epoll_.add(socket_.get(), EPOLLIN) || !epoll_.add(closed_.fd(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for clients");
    }
}

void Door::close() {
    closed_.set();
}

void Door::run(zxcommon::StopRequest& stop) {
    while (!stop.seen()) {
        turn();
    }
    report_refused();
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
    report_refused_when_due();
    update_listening();
}

int Door::wait_ms() const {
    const std::uint64_t now = zxtime_api_upTimeUs();
    std::uint64_t due = farewells_.next_due_us();
    due = is_listening_ ? due : std::min(due, resume_us_);
    due = !refused_.empty() ? std::min(due, reported_us_ + kReportUs) : due;
    return wait_until(due, now);
}

void Door::accept_all() {
    for (int i = 0; i < kClientsPerTurn; ++i) {
        std::string peer;
        zxcommon::Descriptor fd = accept_connection(socket_.get(), peer);
        if (!fd) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                if (failed_.admits()) {
                    log({Level::error, kTag}, "cannot accept another client: %s",
                        std::strerror(errno));
                }
                resume_us_ = now_us_ + kPauseUs;
            }
            return;
        }
        receive(std::move(fd), std::move(peer));
    }
}

void Door::receive(zxcommon::Descriptor fd, std::string peer) {
    Ticket ticket;
    const auto verdict = admission_.enter(peer_address(fd.get()), ticket);
    if (verdict != Admission::Verdict::welcome) {
        refuse(std::move(fd), verdict);
        return;
    }
    prepare_for_stream(fd.get());
    take_({++last_number_, std::move(fd), std::move(peer), std::move(ticket)});
}

void Door::refuse(zxcommon::Descriptor fd, Admission::Verdict verdict) {
    ++refused_[verdict];
    ++stats_.refused_clients;
    farewells_.say(std::move(fd), refusal(status_for(verdict), site_), now_us_);
}

void Door::report_refused_when_due() {
    failed_.report_when_due();
    if (!refused_.empty() && now_us_ - reported_us_ >= kReportUs) {
        report_refused();
        reported_us_ = now_us_;
    }
}

void Door::report_refused() {
    for (const auto& [verdict, count] : std::exchange(refused_, {})) {
        log({Level::warning, kTag}, "refused %llu clients: %s",
            static_cast<unsigned long long>(count), reason_for(verdict));
    }
}

// While nobody can be taken, clients wait in the queue of the socket.
void Door::update_listening() {
    const bool should_listen = now_us_ >= resume_us_;
    if (should_listen == is_listening_) {
        return;
    }
    const int fd = socket_.get();
    if (should_listen ? epoll_.add(fd, EPOLLIN) : epoll_.del(fd)) {
        is_listening_ = should_listen;
    } else {
        resume_us_ = now_us_ + kPauseUs;
    }
}

}  // namespace relay
