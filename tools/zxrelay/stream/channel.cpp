#include "stream/channel.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include "common/failure.hpp"

namespace relay {
namespace {

constexpr std::size_t kLengthPrefix = 4;

}  // namespace

Channel::Channel(std::uint32_t capacity)
    : fifo_(zxfifo_api_blockInit(capacity, "relay")),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fifo_ == nullptr || wake_.get() < 0) {
        zxfifo_api_blockDeinit(&fifo_);
        throw tools::Failure("there is no memory for the FIFO");
    }
}

Channel::~Channel() {
    zxfifo_api_blockDeinit(&fifo_);
}

bool Channel::push(std::span<const std::uint8_t> message) {
    // Only the consumer changes the room meanwhile, and it makes more of it.
    const auto room = static_cast<std::size_t>(zxfifo_api_blockSizeLeft(fifo_));
    if (room < kLengthPrefix + message.size()) {
        return false;
    }
    zxfifo_api_blockLenIn(fifo_, message.data(), static_cast<std::int32_t>(message.size()));
    wake();
    return true;
}

std::span<const std::uint8_t> Channel::pop(std::span<std::uint8_t> buffer) {
    if (empty()) {
        return {};
    }
    const std::int32_t size = zxfifo_api_blockLenOut1(
        fifo_, buffer.data(), static_cast<std::uint32_t>(buffer.size()), __func__, __LINE__);
    return buffer.first(size > 0 ? static_cast<std::size_t>(size) : 0);
}

double Channel::fill() const {
    return static_cast<double>(zxfifo_api_blockSizeUsed(fifo_)) / static_cast<double>(fifo_->size);
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
