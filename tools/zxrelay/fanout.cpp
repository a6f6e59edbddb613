#include "fanout.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/failure.hpp"
#include "internal/log.hpp"
#include "zxepoll.h"
#include "zxtime.h"

namespace relay {
namespace {

constexpr char kTag[] = "RELAY";
constexpr int kBacklog = 128;
constexpr int kEventsPerRound = 64;
constexpr int kMessagesPerRound = 256;  // then the sockets are looked at again
constexpr std::uint64_t kRoundUs = 1000000;

}  // namespace

Fanout::Fanout(const Endpoint& endpoint, std::uint32_t client_buffer, unsigned stall_sec,
               Channel& channel, Stats& stats)
    : client_buffer_(client_buffer),
      stall_us_(std::uint64_t{stall_sec} * 1000000),
      channel_(channel),
      stats_(stats),
      listener_(open_listener(endpoint, kBacklog)),
      epfd_(zxepoll_innerapi_open(1, __func__, __LINE__)),
      message_(kLargestMessage) {
    if (zxepoll_add(epfd_, listener_.get(), EPOLLIN) != 0 ||
        zxepoll_add(epfd_, channel_.wake_fd(), EPOLLIN) != 0) {
        zxepoll_close(&epfd_);
        throw tools::system_failure("cannot wait for clients");
    }
}

Fanout::~Fanout() {
    zxepoll_close(&epfd_);
}

void Fanout::run(Worker& worker) {
    while (!worker.stopping()) {
        epoll_event events[kEventsPerRound];
        const int count = zxepoll_wait(epfd_, events, kEventsPerRound);
        for (int i = 0; i < count; ++i) {
            handle(events[i]);
        }
        deliver();
        if (zxtime_api_counterAsyncUs(&last_round_, kRoundUs) == 1) {
            end_stalled();
            rest_listener();
        }
        remove_ended();
    }
}

void Fanout::handle(const epoll_event& event) {
    if (event.data.fd == listener_.get()) {
        accept_clients();
    } else if (event.data.fd == channel_.wake_fd()) {
        channel_.clear_wake();
    } else if (const auto found = clients_.find(event.data.fd); found != clients_.end()) {
        handle_client(*found->second, event.events);
    }
}

void Fanout::handle_client(Client& client, std::uint32_t events) {
    if ((events & (EPOLLERR | EPOLLHUP)) != 0) {
        end(client, "is gone");
    } else if ((events & EPOLLIN) != 0 && !client.discard_input()) {
        end(client, "has left");
    } else if ((events & EPOLLOUT) != 0) {
        const std::uint64_t before = client.bytes_sent();
        if (!client.flush()) {
            end(client, "is gone");
        } else if (!client.is_behind()) {
            zxepoll_mod(epfd_, client.fd(), EPOLLIN);
        }
        stats_.bytes_out += client.bytes_sent() - before;
    }
}

void Fanout::accept_clients() {
    std::string peer;
    int fd;
    while ((fd = accept_connection(listener_.get(), peer)) >= 0) {
        auto client = std::make_unique<Client>(fd, peer, client_buffer_);
        if (zxepoll_add(epfd_, fd, EPOLLIN) == 0) {
            ZX_LOG(notice, "client %s has connected", peer.c_str());
            clients_.emplace(fd, std::move(client));
            ++stats_.clients;
        }
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        ZX_LOG(error, "no further client can be taken: %s", std::strerror(errno));
        zxepoll_del(epfd_, listener_.get(), EPOLLIN);
        listener_rests_ = true;
    }
}

// Called once a second: a listener that could not be served is tried again.
void Fanout::rest_listener() {
    if (listener_rests_ && zxepoll_add(epfd_, listener_.get(), EPOLLIN) == 0) {
        listener_rests_ = false;
    }
}

void Fanout::deliver() {
    if (!channel_.empty()) {
        drained_ = false;  // before anything leaves the channel: drained() is asked after empty()
    }
    for (int i = 0; i < kMessagesPerRound; ++i) {
        const auto message = channel_.pop(message_);
        if (message.empty()) {
            break;
        }
        deliver_to_all(message);
    }
    if (!channel_.empty()) {
        channel_.wake();
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_behind()) {
            return;
        }
    }
    drained_ = true;
}

void Fanout::deliver_to_all(std::span<const std::uint8_t> message) {
    for (const auto& [fd, client] : clients_) {
        const bool was_behind = client->is_behind();
        const std::uint64_t before = client->bytes_sent();
        switch (client->offer(message)) {
            case Client::Outcome::sent:
                break;
            case Client::Outcome::dropped:
                ++stats_.dropped_slow_client;
                break;
            case Client::Outcome::gone:
                end(*client, "is gone");
                break;
        }
        stats_.bytes_out += client->bytes_sent() - before;
        if (!was_behind && client->is_behind()) {
            zxepoll_mod(epfd_, client->fd(), EPOLLIN | EPOLLOUT);
        }
    }
}

void Fanout::end_stalled() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    for (const auto& [fd, client] : clients_) {
        if (client->is_behind() && now - client->last_progress_us() > stall_us_) {
            end(*client, "takes nothing any more");
        }
    }
}

void Fanout::end(Client& client, const char* why) {
    if (std::find(ended_.begin(), ended_.end(), client.fd()) != ended_.end()) {
        return;
    }
    ZX_LOG(notice, "client %s %s: %llu bytes sent, %llu messages dropped", client.peer().c_str(),
           why, static_cast<unsigned long long>(client.bytes_sent()),
           static_cast<unsigned long long>(client.dropped()));
    ended_.push_back(client.fd());
}

// Last in a round, so that no event of the round meets a client that is no more.
void Fanout::remove_ended() {
    for (const int fd : ended_) {
        if (clients_.erase(fd) == 1) {
            --stats_.clients;
        }
    }
    ended_.clear();
}

}  // namespace relay
