// Connections that end with a last word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zxcommon.hpp"

namespace relay {

// A connection that is closed while bytes of its client are unread is reset, and the client may
// lose the answer. So the relay sends the answer and the end of the stream, and waits until the
// client closes, too: for a second at most.
class Farewells {
public:
    static constexpr std::size_t kMost = 8;

    explicit Farewells(zxcommon::Epoll& epoll) : epoll_(epoll) { leaving_.reserve(kMost); }

    // `fd` is not in the epoll set. If there are kMost connections, the oldest one is closed.
    void say(zxcommon::Descriptor fd, std::string text, std::uint64_t now_us);

    // Called for events of descriptors that may be one of these.
    void handle(int fd);

    void close_overdue(std::uint64_t now_us);

    [[nodiscard]] std::uint64_t next_due_us() const {
        return leaving_.empty() ? UINT64_MAX : leaving_.front().due_us;
    }

private:
    struct Leaving {
        zxcommon::Descriptor fd;
        std::string text;  // what is not sent yet
        std::uint64_t due_us;
    };
    bool serve(Leaving& leaving);

    zxcommon::Epoll& epoll_;
    std::vector<Leaving> leaving_;  // oldest first
};

}  // namespace relay
