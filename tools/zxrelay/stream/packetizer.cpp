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
        if (size_ == 0) {  // straight from the caller's bytes
            bytes = bytes.subspan(emit_packets(bytes));
        }
        const std::span<const std::uint8_t> start = size_ == 0 ? bytes : std::span(buffer_);
        const bool is_packet = !start.empty() && start.front() == kSyncByte;
        const std::size_t wanted = is_packet ? kPacketSize : buffer_.size();
        const std::size_t taken = std::min(bytes.size(), wanted - size_);
        std::copy_n(bytes.begin(), taken, buffer_.begin() + static_cast<std::ptrdiff_t>(size_));
        size_ += taken;
        bytes = bytes.subspan(taken);
        if (size_ == buffer_.size()) {
            skip(next_sync());
        }
        flush();
    }
}

// Emits the packets that `bytes` begin with, and returns their bytes.
std::size_t Packetizer::emit_packets(std::span<const std::uint8_t> bytes) {
    std::size_t whole = 0;
    while (whole + kPacketSize <= bytes.size() && bytes[whole] == kSyncByte) {
        whole += kPacketSize;
    }
    if (whole != 0) {
        emit_(bytes.first(whole));
    }
    return whole;
}

void Packetizer::flush() {
    const std::size_t whole = emit_packets(std::span(buffer_).first(size_));
    size_ -= whole;
    std::memmove(buffer_.data(), buffer_.data() + whole, size_);
}

void Packetizer::finish() {
    skip(size_);
}

void Packetizer::skip(std::size_t count) {
    size_ -= count;
    std::memmove(buffer_.data(), buffer_.data() + count, size_);
    skipped_ += count;
}

// Finds the next packet: a sync byte that is followed by further ones, each a packet apart, to the
// end of the buffer.
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
