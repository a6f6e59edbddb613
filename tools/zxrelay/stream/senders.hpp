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
            Admission::Rules rules, unsigned most_clients, Roster& roster, Board& board);

    ~Senders() { stop(); }
    Senders(const Senders&) = delete;
    Senders& operator=(const Senders&) = delete;

    void start();      // throws a Failure
    void open_door();  // the same; clients come in from now on

    // False if one of them hangs.
    [[nodiscard]] bool are_live() const;

    // True if everything that has left the queues of the channels is sent.
    [[nodiscard]] bool drained() const;

    // Opens and closes channels while the relay runs, for the roster, too. A channel has a queue
    // for each sender. The clients of a closed one lose their connections. Any thread may call
    // these two functions.
    void change(const ChannelList& closed, const ChannelList& opened);
    void disconnect(std::uint64_t client);  // by its number

    void set_most_clients(unsigned most) { admission_.set_most(most); }

    // Returns when no thread is left.
    void stop();

private:
    Roster& roster_;
    Admission admission_;
    std::vector<std::unique_ptr<Sender>> senders_;
    std::size_t next_ = 0;  // the sender of the next client
    Door door_;
    Worker door_worker_;
    std::vector<std::unique_ptr<Worker>> workers_;  // of the senders
};

}  // namespace relay
