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
        const std::size_t taken = std::min(bytes.size(), held_.size() - size_);
        std::memcpy(held_.data() + size_, bytes.data(), taken);
        size_ += taken;
        bytes = bytes.subspan(taken);
        if (size_ == held_.size()) {
            flush();
        }
        if (size_ == held_.size()) {
            skip(next_sync());
        }
    }
}

void Packetizer::flush() {
    std::size_t whole = 0;
    while (whole + kPacketSize <= size_ && held_[whole] == kSyncByte) {
        whole += kPacketSize;
    }
    if (whole == 0) {
        return;
    }
    emit_(std::span(held_).first(whole));
    size_ -= whole;
    std::memmove(held_.data(), held_.data() + whole, size_);
}

void Packetizer::finish() {
    flush();
    skip(size_);
}

void Packetizer::skip(std::size_t count) {
    size_ -= count;
    std::memmove(held_.data(), held_.data() + count, size_);
    skipped_ += count;
}

// Where packets begin again: at a sync byte with others at every packet's distance behind it.
std::size_t Packetizer::next_sync() const {
    for (std::size_t start = 1; start < size_; ++start) {
        std::size_t at = start;
        while (at < size_ && held_[at] == kSyncByte) {
            at += kPacketSize;
        }
        if (at >= size_) {
            return start;
        }
    }
    return size_;
}

}  // namespace relay
