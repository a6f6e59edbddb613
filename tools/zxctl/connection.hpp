// The connection to a program that answers questions about itself.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "zxcommon.hpp"

namespace ctl {

// Milliseconds of a clock that nobody sets.
[[nodiscard]] std::int64_t now_ms();

class Connection {
public:
    // Connects at once. Throws Refused with the error number of connect().
    explicit Connection(const std::string& path);

    struct Refused : std::runtime_error {
        Refused(int number, const std::string& what) : std::runtime_error(what), code(number) {}
        int code;
    };

    // The process that serves; 0: it is in another namespace.
    [[nodiscard]] pid_t process() const;

    // Readable when it is time to call receive().
    [[nodiscard]] int fd() const { return fd_.get(); }

    // Sends a question. When the program has ended, the next receive() says so.
    void send(std::string_view question) const;

    // Takes what has arrived, without waiting. Call it when next_line() has nothing.
    void receive();

    // The next answer without its line end; nothing: it has not arrived yet. The text is valid
    // until the next receive(). Throws a Failure when an answer is longer than `kLongestAnswer`,
    // and when no more answers can arrive.
    [[nodiscard]] std::optional<std::string_view> next_line();
    static constexpr std::size_t kLongestAnswer = 16U << 20U;

    // Waits for the next answer. Throws a Failure also when there is none within `timeout_ms`.
    [[nodiscard]] std::string_view wait_for_line(std::int64_t timeout_ms);
    static constexpr std::int64_t kForever = -1;

private:
    zxcommon::Descriptor fd_;
    std::string received_;
    std::size_t begin_ = 0;     // of the next answer
    std::size_t searched_ = 0;  // no line end before
    bool has_ended_ = false;
};

}  // namespace ctl
