// Writes text to a descriptor through a buffer.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace capture {

// The reader of the output has closed it, or has stopped reading it when a signal came.
struct OutputClosed : std::exception {};

// Writes the buffer, which is empty afterwards in any case. After a signal, a slow reader of a pipe
// still gets the rest, but one that has stopped reading cannot hold up the end. Throws
// OutputClosed. False: another error, in errno.
[[nodiscard]] bool write_all(int fd, std::string& buffer);

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
