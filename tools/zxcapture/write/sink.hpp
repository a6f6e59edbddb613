// Where the bytes of a capture file or a transport stream go. Only whole records are written, so at
// any moment the file is one that can be read.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "source/source.hpp"
#include "zxcommon.hpp"

namespace capture {

class Sink {
public:
    // Empties the file, unless it is the one that is `read`. The path "-" is standard output. All
    // functions except add() throw a Failure if the file cannot be written, and OutputClosed if it
    // is a pipe whose reader has closed it, or does not read any more after a signal.
    Sink(const std::string& path, const std::optional<FileId>& read);

    void add(std::span<const std::uint8_t> bytes);

    // The bytes so far end with a whole record.
    void end_record();

    void flush();

    // With what has not been written yet.
    [[nodiscard]] std::uint64_t size() const { return written_ + buffer_.size(); }

private:
    [[noreturn]] void fail() const;

    const std::string name_;  // for error messages
    zxcommon::Descriptor own_;
    int descriptor_;
    std::string buffer_;
    std::uint64_t written_ = 0;
};

}  // namespace capture
