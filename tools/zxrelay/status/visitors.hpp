// The connections of the status page, and when they have to go.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <list>
#include <string>

namespace relay {

// A client may take a few seconds to send a request, and half a minute to receive the answer. If
// there are many connections, the oldest ones that still send a request have to go, so that a new
// one is served at once, whoever holds the others open.
class Visitors {
public:
    using Clock = std::chrono::steady_clock;

    // A new connection; `id` is its name.
    void add(const void* id, int fd, const sockaddr* address);
    void remove(const void* id);

    // The request is complete, or the answer is: then the next request may follow.
    void begin_answer(const void* id) { begin(id, true); }
    void end_answer(const void* id) { begin(id, false); }

    // Shuts down every connection whose time is over. Its owner sees that and closes it.
    void end_overdue();

private:
    struct Visitor {
        const void* id;
        int fd;
        std::string network;
        Clock::time_point since;
        bool is_answered = false;
        bool has_ended = false;
    };
    using Place = std::list<Visitor>::iterator;

    Place find(const void* id);
    void begin(const void* id, bool is_answered);
    void make_room(std::size_t most, const std::function<bool(const Visitor&)>& counts);
    static void end(Visitor& visitor);

    std::list<Visitor> all_;  // the one that began its request or answer first is in front
};

}  // namespace relay
