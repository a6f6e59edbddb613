#include "stream/senders.hpp"

#include <algorithm>
#include <string>
#include <utility>

namespace relay {
namespace {

constexpr std::uint64_t kLeastMemory = std::uint64_t{4} * Ring::kBlockSize;

std::vector<std::unique_ptr<Sender>> make_senders(Sender::Settings settings, std::size_t count,
                                                  GuestStats& guests, Board& board) {
    settings.memory_bytes = std::max(settings.memory_bytes / count, kLeastMemory);
    std::vector<std::unique_ptr<Sender>> senders;
    for (std::size_t i = 0; i < count; ++i) {
        senders.push_back(std::make_unique<Sender>(settings, i, guests, board));
    }
    return senders;
}

}  // namespace

Senders::Senders(zxcommon::Descriptor listener, const Sender::Settings& settings, std::size_t count,
                 Admission::Rules rules, unsigned most_clients, Roster& roster, Board& board)
    : roster_(roster),
      admission_(std::move(rules), most_clients),
      senders_(make_senders(settings, count, roster.guests, board)),
      door_(std::move(listener), admission_, settings.site, roster.guests,
            [this](Guest guest) {
                senders_[next_++ % senders_.size()]->inbox().adopt(std::move(guest));
            }),
      door_worker_("relay-accept", [this](zxcommon::StopRequest& stop) { door_.run(stop); }) {
    for (const auto& sender : senders_) {
        const std::string suffix = count == 1 ? "" : std::to_string(workers_.size() + 1);
        workers_.push_back(std::make_unique<Worker>(
            "relay-send" + suffix, [&sender](zxcommon::StopRequest& stop) { sender->run(stop); }));
    }
}

void Senders::start() {
    std::for_each(workers_.begin(), workers_.end(), [](const auto& worker) { worker->start(); });
}

void Senders::open_door() {
    door_worker_.start();
}

bool Senders::are_live() const {
    return std::all_of(senders_.begin(), senders_.end(),
                       [](const auto& sender) { return sender->is_live(); });
}

bool Senders::drained() const {
    return std::all_of(senders_.begin(), senders_.end(),
                       [](const auto& sender) { return sender->drained(); });
}

void Senders::change(const ChannelList& closed, const ChannelList& opened) {
    roster_.change(closed, opened);
    for (const auto& sender : senders_) {
        sender->inbox().change(closed, opened);
    }
}

void Senders::disconnect(std::uint64_t client) {
    for (const auto& sender : senders_) {
        sender->inbox().disconnect(client);
    }
}

// Every thread is woken first, because it waits without a limit while nothing happens.
void Senders::stop() {
    door_.close();
    std::for_each(senders_.begin(), senders_.end(),
                  [](const auto& sender) { sender->inbox().close(); });
    door_worker_.stop();
    std::for_each(workers_.begin(), workers_.end(), [](const auto& worker) { worker->stop(); });
}

}  // namespace relay
