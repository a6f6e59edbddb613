// Writes text to a descriptor through a buffer.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace capture {

// The reader of the output has closed it, or a signal arrived while the output was blocked.
struct OutputClosed : std::exception {};

class Output {
public:
    explicit Output(int fd);

    void add(std::string_view text);

    // Throws OutputClosed, or a Failure for any other error.
    void flush();

private:
    int fd_;
    std::string buffer_;
};

}  // namespace capture
