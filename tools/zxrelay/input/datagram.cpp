#include "input/datagram.hpp"

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/transport_stream.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::is_transport_stream;
using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kErrorPauseMs = 10;
constexpr int kSilenceMs = 10000;

// One wake for all datagrams of this time. 2 ms of 300 Mbit/s fit any receive buffer; above that,
// batches are full, and there is no pause.
constexpr int kGatherMs = 2;

constexpr std::size_t kBatchSize = 64;
constexpr std::size_t kRoom = 65536;  // no datagram is larger, nor are several that came as one

}  // namespace

// Room for what one call of recvmmsg() receives. Memory that is never written costs nothing, and
// small datagrams write only the first page of their room.
class DatagramSource::Batch {
public:
    Batch() : bytes_(std::make_unique_for_overwrite<std::uint8_t[]>(kBatchSize * kRoom)) {
        for (std::size_t i = 0; i < kBatchSize; ++i) {
            parts_[i] = {bytes_.get() + i * kRoom, kRoom};
            messages_[i].msg_hdr.msg_iov = &parts_[i];
            messages_[i].msg_hdr.msg_iovlen = 1;
        }
    }

    // Returns the number of messages, or -1 with `errno`.
    int receive(int fd) {
        for (std::size_t i = 0; i < kBatchSize; ++i) {
            messages_[i].msg_hdr.msg_control = &controls_[i];
            messages_[i].msg_hdr.msg_controllen = sizeof controls_[i];
        }
        return recvmmsg(fd, messages_.data(), kBatchSize, MSG_DONTWAIT, nullptr);
    }

    [[nodiscard]] std::span<const std::uint8_t> bytes(std::size_t i) const {
        return {bytes_.get() + i * kRoom, messages_[i].msg_len};
    }

    // The size of each datagram if the kernel has put several into one message (UDP_GRO).
    [[nodiscard]] std::size_t segment_size(std::size_t i) const {
        const msghdr& header = messages_[i].msg_hdr;
        const cmsghdr* const control = CMSG_FIRSTHDR(&header);
        int size = 0;
        if (control != nullptr && control->cmsg_level == SOL_UDP && control->cmsg_type == UDP_GRO) {
            std::memcpy(&size, CMSG_DATA(control), sizeof size);
        }
        return size > 0 ? static_cast<std::size_t>(size) : kRoom;
    }

private:
    struct alignas(cmsghdr) Control {
        char bytes[CMSG_SPACE(sizeof(int))];
    };
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::array<iovec, kBatchSize> parts_{};
    std::array<Control, kBatchSize> controls_{};
    std::array<mmsghdr, kBatchSize> messages_{};
};

DatagramSource::DatagramSource(OpenInput input, Entrance& entrance, bool at_once)
    : input_(std::move(input)),
      entrance_(entrance),
      batch_(std::make_unique<Batch>()),
      order_([this](std::span<const std::uint8_t> payload) { entrance_.push(payload); }),
      has_said_rtp_(input_.url.scheme == Scheme::rtp),
      gather_ms_(at_once ? 0 : kGatherMs) {
    const int on = 1;
    setsockopt(input_.fd.get(), SOL_UDP, UDP_GRO, &on, sizeof on);  // old kernels do without
}

DatagramSource::~DatagramSource() = default;

void DatagramSource::run() {
    while (!interrupt_.is_raised()) {
        const auto order_ms = wait_ms();
        if (interrupt_.wait(input_.fd.get(), order_ms.value_or(kSilenceMs))) {
            receive();
        } else if (!order_ms) {
            join_again(input_);  // the interface may have gone and come back
        }
        order_.expire(zxtime_api_upTimeUs());
        count_lost();
    }
    order_.finish();
    count_lost();
}

// Until a datagram that is missing is given up. Nothing: none is missing.
std::optional<int> DatagramSource::wait_ms() const {
    const auto due_us = order_.due_in_us(zxtime_api_upTimeUs());
    return due_us ? std::optional(static_cast<int>((*due_us + 999) / 1000)) : std::nullopt;
}

void DatagramSource::receive() {
    const int count = batch_->receive(input_.fd.get());
    if (count < 0 && errno != EAGAIN) {
        interrupt_.pause(kErrorPauseMs);
    }
    const std::size_t received = count > 0 ? static_cast<std::size_t>(count) : 0;
    for (std::size_t i = 0; i < received; ++i) {
        take(batch_->bytes(i), batch_->segment_size(i));
    }
    if (received < kBatchSize && gather_ms_ != 0) {
        interrupt_.pause(gather_ms_);
    }
}

void DatagramSource::take(std::span<const std::uint8_t> received, std::size_t segment_size) {
    entrance_.count_received(received.size());
    if (is_transport_stream(received)) {
        entrance_.push(received);
        return;
    }
    while (!received.empty()) {
        const std::size_t size = std::min(segment_size, received.size());
        take_datagram(received.first(size));
        received = received.subspan(size);
    }
}

void DatagramSource::take_datagram(std::span<const std::uint8_t> datagram) {
    if (is_transport_stream(datagram)) {
        entrance_.push(datagram);
    } else if (const auto rtp = tools::parse_stream_rtp(datagram)) {
        if (!std::exchange(has_said_rtp_, true)) {
            log({Level::notice, kTag}, "the source %s sends RTP: its headers are removed",
                entrance_.name().c_str());
        }
        order_.feed(*rtp, zxtime_api_upTimeUs());
    } else {
        entrance_.count_skipped(datagram.size());
    }
}

void DatagramSource::count_lost() {
    entrance_.count_lost(order_.lost() - counted_lost_);
    counted_lost_ = order_.lost();
}

}  // namespace relay
