#include "stream/reception.hpp"

#include <algorithm>
#include <exception>
#include <utility>

#include "zxcommon.hpp"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";

// For a channel that is not opened.
unsigned status_for(Demand demand) {
    switch (demand) {
        case Demand::forbidden:
            return HTTP_STATUS_FORBIDDEN;
        case Demand::full:
        case Demand::failed:
            return HTTP_STATUS_SERVICE_UNAVAILABLE;
        default:
            return HTTP_STATUS_NOT_FOUND;
    }
}

}  // namespace

Reception::Reception(zxcommon::Epoll& epoll, const Feeds& feeds, Site site, OnDemand on_demand,
                     GuestStats& guests, LogLimit& left, Pass pass)
    : epoll_(epoll),
      feeds_(feeds),
      site_(std::move(site)),
      on_demand_(std::move(on_demand)),
      guests_(guests),
      left_(left),
      pass_(std::move(pass)),
      farewells_(epoll) {}

// A client for which there is no memory loses its connection.
void Reception::welcome(Guest guest) {
    const int fd = guest.fd.get();
    try {
        auto newcomer = std::make_unique<Newcomer>(std::move(guest), first_listed(), now_us_);
        if (epoll_.add(fd, EPOLLIN)) {
            const Guest& welcomed =
                newcomers_.emplace(fd, std::move(newcomer)).first->second->guest;
            ++guests_.connections;
            if (connected_.admits()) {
                log({Level::notice, kTag}, "client %s has connected", welcomed.peer.c_str());
            }
        }
    } catch (const std::exception&) {
        if (connected_.admits()) {
            log({Level::error, kTag}, "%s", "no memory for another client");
        }
    }
}

Feed* Reception::first_listed() const {
    const auto found = std::ranges::find_if(
        feeds_, [](const auto& feed) { return feed->channel.settings().is_listed; });
    return found != feeds_.end() ? found->get() : nullptr;
}

void Reception::handle(int fd, std::uint32_t events) {
    if (const auto newcomer = newcomers_.find(fd); newcomer != newcomers_.end()) {
        listen(*newcomer->second, events);
    } else {
        farewells_.handle(fd);
    }
}

void Reception::listen(Newcomer& newcomer, std::uint32_t events) {
    const bool is_lost = (events & (EPOLLERR | EPOLLHUP)) != 0;
    try {
        decide(newcomer, is_lost ? Newcomer::Wish::gone : newcomer.listen());
    } catch (const std::exception&) {
        let_go(newcomer);
    }
}

void Reception::decide_overdue() {
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->guest.fd && newcomer->due_us() <= now_us_) {
            try {
                decide(*newcomer, newcomer->overdue_wish());
            } catch (const std::exception&) {
                let_go(*newcomer);
            }
        }
    }
    farewells_.close_overdue(now_us_);
}

void Reception::decide(Newcomer& newcomer, Newcomer::Wish wish) {
    switch (wish) {
        case Newcomer::Wish::unknown:
            break;
        case Newcomer::Wish::raw:
            start_raw(newcomer);
            break;
        case Newcomer::Wish::http:
            answer_request(newcomer);
            break;
        case Newcomer::Wish::late:
            refuse(newcomer, refusal(HTTP_STATUS_REQUEST_TIMEOUT, site_));
            break;
        case Newcomer::Wish::no_channel:
            refuse(newcomer, refusal(HTTP_STATUS_SERVICE_UNAVAILABLE, site_));
            break;
        case Newcomer::Wish::gone:
            let_go(newcomer);
            break;
    }
}

void Reception::let_go(Newcomer& newcomer) {
    if (left_.admits()) {
        log({Level::notice, kTag}, "client %s has disconnected", newcomer.guest.peer.c_str());
    }
    newcomer.guest.fd.reset();
    have_gone_ = true;
}

// The client may lag as far as the others, and also by what has come since it connected.
void Reception::start_raw(Newcomer& newcomer) {
    Feed* const feed = newcomer.raw_feed;
    if (!site_.token.empty()) {
        refuse(newcomer, refusal(HTTP_STATUS_UNAUTHORIZED, site_));
    } else if (feed == nullptr) {
        let_go(newcomer);
    } else {
        have_gone_ = true;
        const std::uint64_t waiting = feed->ring.end() - newcomer.position;
        const std::uint64_t reach = feed->channel.settings().client_buffer_bytes + waiting;
        pass_({newcomer.guest, *feed, newcomer.position, reach, "", {}});
    }
}

void Reception::answer_request(Newcomer& newcomer) {
    HttpAnswer answer = answer_to(newcomer.request(), site_);
    if (!must_wait(newcomer, answer)) {
        give(newcomer, std::move(answer));
    }
}

// True if the channel will soon be open. Until then, what the client sends waits in its socket. A
// HEAD does not wait: it opens no channel.
bool Reception::must_wait(Newcomer& newcomer, HttpAnswer& answer) {
    if (answer.demanded.empty() || !on_demand_) {
        return false;
    }
    const HttpRequest& request = newcomer.request();
    const bool is_for_head = request.method == HTTP_HEAD;
    const bool is_new = !newcomer.is_waiting();
    const Demand demand = on_demand_(answer.demanded, is_new && !is_for_head);
    if (demand != Demand::open && demand != Demand::coming) {
        answer = {refusal_to(request, status_for(demand), site_), {}, {}, ""};
        return false;
    }
    if (is_for_head) {
        answer.text = head_of_stream(site_);
        return false;
    }
    if (demand == Demand::open && answer.channel) {
        return false;
    }
    if (is_new) {
        newcomer.wait_for_channel(now_us_);
    }
    return epoll_.mod(newcomer.guest.fd.get(), 0);
}

void Reception::give(Newcomer& newcomer, HttpAnswer answer) {
    if (!answer.channel) {
        refuse(newcomer, std::move(answer.text));
        return;
    }
    Feed& feed = *feeds_[*answer.channel];
    have_gone_ = true;
    pass_({newcomer.guest, feed, feed.ring.end(), feed.channel.settings().client_buffer_bytes,
           std::move(answer.text), answer.last_seconds});
}

void Reception::refuse(Newcomer& newcomer, std::string text) {
    have_gone_ = true;
    epoll_.del(newcomer.guest.fd.get());
    farewells_.say(std::move(newcomer.guest.fd), std::move(text), now_us_);
}

void Reception::remove_gone() {
    if (std::exchange(have_gone_, false)) {
        std::erase_if(newcomers_, [](const auto& item) { return !item.second->guest.fd; });
    }
}

void Reception::update_site() {
    site_.channels.clear();
    for (const auto& feed : feeds_) {
        const ChannelSettings& settings = feed->channel.settings();
        site_.channels.push_back({settings.name, settings.is_listed});
    }
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->guest.fd && newcomer->is_waiting()) {
            answer_again(*newcomer);
        }
    }
}

// Answers a client that has waited for its channel, if the channel is open now or cannot be opened.
void Reception::answer_again(Newcomer& newcomer) {
    try {
        HttpAnswer answer = answer_to(newcomer.request(), site_);
        if (!must_wait(newcomer, answer) && epoll_.mod(newcomer.guest.fd.get(), EPOLLIN)) {
            give(newcomer, std::move(answer));
        }
    } catch (const std::exception&) {
        let_go(newcomer);
    }
}

void Reception::leave(const Feed& feed) {
    for (const auto& [fd, newcomer] : newcomers_) {
        newcomer->raw_feed = newcomer->raw_feed == &feed ? nullptr : newcomer->raw_feed;
    }
}

void Reception::hold_stream() const {
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->is_silent() && newcomer->raw_feed != nullptr) {
            newcomer->raw_feed->need_from(newcomer->position);
        }
    }
}

void Reception::move_forward(const Ring& ring, std::uint64_t position) {
    for (const auto& [fd, newcomer] : newcomers_) {
        if (newcomer->raw_feed != nullptr && &newcomer->raw_feed->ring == &ring) {
            newcomer->position = std::max(newcomer->position, position);
        }
    }
}

std::uint64_t Reception::next_due_us() const {
    std::uint64_t due = farewells_.next_due_us();
    for (const auto& [fd, newcomer] : newcomers_) {
        due = std::min(due, newcomer->due_us());
    }
    return due;
}

bool Reception::has_silent() const {
    return std::any_of(newcomers_.begin(), newcomers_.end(),
                       [](const auto& item) { return item.second->is_silent(); });
}

}  // namespace relay
