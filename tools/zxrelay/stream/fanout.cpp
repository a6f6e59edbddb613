#include "stream/fanout.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/failure.hpp"
#include "internal/log.hpp"
#include "stream/lock_table.hpp"
#include "stream/net.hpp"
#include "zxepoll.h"
#include "zxtime.h"

namespace relay {
namespace {

constexpr char kTag[] = "RELAY";
constexpr int kEventsPerRound = 64;
constexpr std::uint64_t kBuffersToCome = 4096;  // before somebody looks at them
constexpr int kMessagesPerRound = 256;          // then the sockets are looked at again
constexpr int kWaitMs = 500;
constexpr std::uint64_t kMicro = 1000000;

}  // namespace

Fanout::Fanout(zx::UniqueFd listener, const Limits& limits, Channel& channel, Store* store,
               Stats& stats, Board& board)
    : limits_(limits),
      channel_(channel),
      store_(store),
      stats_(stats),
      board_(board),
      listener_(std::move(listener)),
      epfd_(zxepoll_innerapi_open(1, __func__, __LINE__)),
      last_publish_us_(zxtime_api_upTimeUs()),
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
        const int due_ms = store_ != nullptr ? store_->due_ms() : -1;
        const int count =
            zxepoll_wait_timeout(epfd_, events, kEventsPerRound, due_ms < 0 ? kWaitMs : due_ms);
        for (int i = 0; i < count; ++i) {
            handle(events[i]);
        }
        deliver();
        serve_shifted();
        look_at_drain();
        do_each_second();
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
        return;
    }
    std::optional<std::uint64_t> seconds;
    if ((events & EPOLLIN) != 0 && !client.read_input(seconds)) {
        end(client, "has left");
    } else if (seconds) {
        shift(client, *seconds);
    } else if ((events & EPOLLOUT) != 0) {
        const std::uint64_t before = client.bytes_sent();
        const std::uint64_t dropped_before = client.dropped();
        if (!client.flush()) {
            end(client, "is gone");
        }
        stats_.dropped_slow_client += client.dropped() - dropped_before;
        stats_.bytes_out += client.bytes_sent() - before;
        watch(client);
    }
}

void Fanout::shift(Client& client, std::uint64_t seconds) {
    if (store_ != nullptr) {
        ZX_LOG(notice, "client %s receives from %llu s ago on", client.peer().c_str(),
               static_cast<unsigned long long>(seconds));
        client.shift(*store_, store_->back(seconds));
        watch(client);
    } else if (!missed_store_) {
        ZX_LOG(info, "client %s asks for what is past, which is not kept", client.peer().c_str());
        missed_store_ = true;
    }
}

// Has its socket watched for room exactly while it is behind.
void Fanout::watch(Client& client) {
    const bool is_behind = client.is_behind();
    if (is_behind != client.is_watched()) {
        client.set_watched(is_behind);
        zxepoll_mod(epfd_, client.fd(), is_behind ? EPOLLIN | EPOLLOUT : EPOLLIN);
    }
}

void Fanout::accept_clients() {
    std::string peer;
    int fd;
    while ((fd = accept_connection(listener_.get(), peer)) >= 0) {
        auto client = std::make_unique<Client>(fd, peer, limits_.client_buffer);
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
    }
}

// Shifted clients that had all go on when there is more.
void Fanout::serve_shifted() {
    if (store_ == nullptr || !store_->close_when_due()) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_shifted()) {
            watch(*client);
        }
    }
}

void Fanout::look_at_drain() {
    if (!channel_.empty() || (store_ != nullptr && store_->due_ms() >= 0)) {
        return;
    }
    for (const auto& [fd, client] : clients_) {
        if (client->is_behind()) {
            return;
        }
    }
    drained_ = true;
}

void Fanout::do_each_second() {
    if (zxtime_api_counterAsyncUs(&last_round_, kMicro) == 1) {
        end_stalled();
        rest_listener();
        publish();
    }
}

void Fanout::deliver_to_all(std::span<const std::uint8_t> message) {
    if (store_ != nullptr) {
        store_->add(message);
    }
    for (const auto& [fd, client] : clients_) {
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
        if (!client->is_shifted()) {
            watch(*client);
        }
    }
}

void Fanout::end_stalled() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    for (const auto& [fd, client] : clients_) {
        if (client->is_watched() && now - client->last_progress_us() > limits_.stall_sec * kMicro) {
            end(*client, "takes nothing any more");
        }
    }
}

void Fanout::publish() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const std::uint64_t passed = std::max<std::uint64_t>(now - last_publish_us_, 1);
    last_publish_us_ = now;
    Snapshot snapshot;
    for (const auto& [fd, client] : clients_) {
        snapshot.clients.push_back({client->peer(), client->bytes_sent(),
                                    client->take_progress() * kMicro / passed, client->dropped(),
                                    client->waiting(), client->is_shifted()});
    }
    snapshot.locks = view_locks();
    if (store_ != nullptr) {
        snapshot.stored_bytes = store_->bytes();
        snapshot.stored_nodes = store_->nodes();
    }
    // The FIFO, backlogs and nodes have two buffers each.
    snapshot.tracked_buffers =
        2 * (1 + snapshot.clients.size() + snapshot.stored_nodes) + kBuffersToCome;
    board_.publish(std::move(snapshot));
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
