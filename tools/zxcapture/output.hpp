// Buffered writing to a descriptor.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace capture {

// Nobody reads the output any more, or a signal asked for the end while somebody was slow to.
struct OutputClosed : std::exception {};

class Output {
public:
    explicit Output(int fd);

    void add(std::string_view text);

    // Throws OutputClosed, and a Failure for any other reason.
    void flush();

private:
    int fd_;
    std::string buffer_;
};

}  // namespace capture
