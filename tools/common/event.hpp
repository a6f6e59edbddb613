// Wakes a thread that waits for descriptors.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "common/failure.hpp"
#include "zxcommon.hpp"

namespace tools {

// Any thread may call its functions.
class Event {
public:
    Event() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        if (!descriptor_) {
            throw system_failure("no descriptor to wake a thread");
        }
    }

    // Readable after set(), until clear().
    [[nodiscard]] int fd() const { return descriptor_.get(); }

    void set() const {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t put = write(fd(), &one, sizeof one);
    }
    void clear() const {
        std::uint64_t count;
        [[maybe_unused]] const ssize_t got = read(fd(), &count, sizeof count);
    }

private:
    const zxcommon::Descriptor descriptor_;
};

}  // namespace tools
