#include "stream/packetizer.hpp"

#include <algorithm>
#include <cstring>

namespace relay {
namespace {

constexpr std::uint8_t kSyncByte = 0x47;

}  // namespace

bool is_transport_stream(std::span<const std::uint8_t> bytes) {
    for (std::size_t at = 0; at < bytes.size(); at += kPacketSize) {
        if (bytes[at] != kSyncByte) {
            return false;
        }
    }
    return !bytes.empty() && bytes.size() % kPacketSize == 0;
}

void Packetizer::feed(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::size_t taken = std::min(bytes.size(), buffer_.size() - size_);
        std::memcpy(buffer_.data() + size_, bytes.data(), taken);
        size_ += taken;
        bytes = bytes.subspan(taken);
        if (size_ == buffer_.size()) {
            flush();
        }
        if (size_ == buffer_.size()) {
            skip(next_sync());
        }
    }
}

void Packetizer::flush() {
    std::size_t whole = 0;
    while (whole + kPacketSize <= size_ && buffer_[whole] == kSyncByte) {
        whole += kPacketSize;
    }
    if (whole == 0) {
        return;
    }
    emit_(std::span(buffer_).first(whole));
    size_ -= whole;
    std::memmove(buffer_.data(), buffer_.data() + whole, size_);
}

void Packetizer::finish() {
    flush();
    skip(size_);
}

void Packetizer::skip(std::size_t count) {
    size_ -= count;
    std::memmove(buffer_.data(), buffer_.data() + count, size_);
    skipped_ += count;
}

// Finds the next packet. It begins with a sync byte, and as far as the buffer goes there is another
// one after every packet length.
std::size_t Packetizer::next_sync() const {
    for (std::size_t start = 1; start < size_; ++start) {
        std::size_t at = start;
        while (at < size_ && buffer_[at] == kSyncByte) {
            at += kPacketSize;
        }
        if (at >= size_) {
            return start;
        }
    }
    return size_;
}

}  // namespace relay
