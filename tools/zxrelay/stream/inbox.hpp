// What other threads want of a sender.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "common/event.hpp"
#include "common/mutex.hpp"
#include "stream/admission.hpp"
#include "stream/roster.hpp"

namespace relay {

class Inbox {
public:
    Inbox() = default;
    Inbox(const Inbox&) = delete;
    Inbox& operator=(const Inbox&) = delete;

    struct Content {
        ChannelList closed;  // one that is opened and closed again is in both lists
        ChannelList opened;
        bool has_changed = false;  // the channels, or only their ranks
        std::vector<Guest> guests;
        std::vector<std::uint64_t> disconnected;  // numbers of clients
    };

    // Any thread may call these functions.
    void change(const ChannelList& closed, const ChannelList& opened);
    void adopt(Guest guest);
    void disconnect(std::uint64_t client);
    void close();  // from now on, the descriptor stays readable

    // These are for the owner. The descriptor is readable when there is something to take.
    [[nodiscard]] int fd() const { return wake_.fd(); }
    void clear_wake();
    [[nodiscard]] Content take();

private:
    const tools::Event wake_;
    tools::Mutex mutex_;
    Content content_ ZX_GUARDED_BY(mutex_);
    std::atomic<bool> is_closed_{false};
};

}  // namespace relay
