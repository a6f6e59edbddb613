#include "stream/channel.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include "common/failure.hpp"

namespace relay {

Channel::Channel(std::uint32_t capacity)
    : fifo_(capacity, "relay"), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!fifo_ || !wake_) {
        throw tools::Failure("no memory for the FIFO");
    }
}

bool Channel::push(std::span<const std::uint8_t> message) {
    // There is only one producer, so the room cannot shrink before message_in().
    if (static_cast<std::size_t>(fifo_.left()) < ZXFIFO_PREFIX_SIZE + message.size()) {
        return false;
    }
    fifo_.message_in(message);
    wake();
    return true;
}

std::span<const std::uint8_t> Channel::pop(std::span<std::uint8_t> buffer) {
    if (empty()) {
        return {};
    }
    const std::int32_t size = fifo_.message_out(buffer);
    return buffer.first(size > 0 ? static_cast<std::size_t>(size) : 0);
}

double Channel::fill_ratio() const {
    return static_cast<double>(fifo_.used()) / static_cast<double>(fifo_.get()->size);
}

void Channel::clear_wake() {
    if (!closed_) {
        std::uint64_t count;
        [[maybe_unused]] const ssize_t got = read(wake_.get(), &count, sizeof count);
    }
}

void Channel::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(wake_.get(), &one, sizeof one);
}

void Channel::close() {
    closed_ = true;
    wake();
}

}  // namespace relay
