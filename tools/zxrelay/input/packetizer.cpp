#include "input/packetizer.hpp"

#include <algorithm>
#include <cstring>

namespace relay {

using tools::kSyncByte, tools::packets_at_front;

namespace {

constexpr std::size_t kLookAhead = 2 * kPacketSize;  // to the third sync byte

}  // namespace

void Packetizer::feed(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const std::size_t taken = std::min(bytes.size(), room().size());
        std::memcpy(room().data(), bytes.data(), taken);
        commit(taken);
        bytes = bytes.subspan(taken);
    }
}

void Packetizer::commit(std::size_t size) {
    end_ += size;
    emit_packets();
}

void Packetizer::finish() {
    emit(packets_at_front(waiting()));
    skip(end_ - begin_);
}

// Leaves less than three packets, at the front of the buffer.
void Packetizer::emit_packets() {
    while (is_in_step_ || find_step()) {
        emit(packets_at_front(waiting()));
        if (begin_ == end_ || buffer_[begin_] == kSyncByte) {
            break;  // the next packet is not complete yet
        }
        is_in_step_ = false;
    }
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
}

// Skips to the next packet; false if there are not enough bytes to tell.
bool Packetizer::find_step() {
    std::size_t at = begin_;
    while (at + kLookAhead < end_ && !is_in_step_) {
        is_in_step_ = buffer_[at] == kSyncByte && buffer_[at + kPacketSize] == kSyncByte &&
                      buffer_[at + kLookAhead] == kSyncByte;
        at += is_in_step_ ? 0 : 1;
    }
    skip(at - begin_);
    return is_in_step_;
}

void Packetizer::emit(std::size_t count) {
    if (count != 0) {
        emit_(waiting().first(count));
        begin_ += count;
    }
}

void Packetizer::skip(std::size_t count) {
    begin_ += count;
    skipped_ += count;
}

std::span<const std::uint8_t> Packetizer::waiting() const {
    return std::span(buffer_).subspan(begin_, end_ - begin_);
}

}  // namespace relay
