// All senders, and the door that lets their clients in.
#pragma once

#include <memory>
#include <vector>

#include "stream/channel.hpp"
#include "stream/door.hpp"
#include "stream/sender.hpp"
#include "stream/snapshot.hpp"
#include "stream/worker.hpp"
#include "zxcommon.hpp"

namespace relay {

class Senders {
public:
    // The memory of `settings` is shared by `count` senders. Throws a Failure.
    Senders(zxcommon::Descriptor listener, const Sender::Settings& settings, std::size_t count,
            unsigned max_clients, const std::vector<Channel*>& channels, Board& board);

    ~Senders() { stop(); }
    Senders(const Senders&) = delete;
    Senders& operator=(const Senders&) = delete;

    void start();  // throws a Failure

    // True if everything that has left the queues of the channels is sent.
    [[nodiscard]] bool drained() const;

    // Closes the channels, and returns when no thread is left.
    void stop();

private:
    const std::vector<Channel*> channels_;
    Admission admission_;
    std::vector<std::unique_ptr<Sender>> senders_;
    std::size_t next_ = 0;  // the sender of the next client
    Door door_;
    std::vector<std::unique_ptr<Worker>> workers_;  // the first one is that of the door
};

}  // namespace relay
