// The connections of the status page, and their deadlines.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>

namespace relay {

// A connection is for one request. A client may take a few seconds to send it, and half a minute to
// receive the answer. If there are many connections, the network that has most of them loses one,
// so that a new one is served at once, whoever holds the others open.
class Visitors {
public:
    using Clock = std::chrono::steady_clock;

    // A new connection; `id` is its name. Throws if memory is short.
    void add(const void* id, int fd, const sockaddr* address);
    void remove(const void* id);

    // The answer is ready.
    void begin_answer(const void* id);

    // Shuts down every connection whose time is over. Its owner sees that and closes it.
    void end_overdue();

private:
    struct Visitor {
        const void* id;
        int fd;
        std::uint64_t network;
        Clock::time_point since;
        bool is_answered = false;
        bool has_ended = false;
    };

    [[nodiscard]] std::size_t connections_of(std::uint64_t network) const;
    void make_room();
    static void end(Visitor& visitor);

    std::list<Visitor> all_;  // the one that began its request or answer first is in front
};

}  // namespace relay
