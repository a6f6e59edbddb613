#include "input/file.hpp"

#include <unistd.h>

#include "input/stream_reader.hpp"
#include "zxtime.h"

namespace relay {
namespace {

constexpr std::uint64_t kLargestStepUs = 1000000;  // a larger one is a cut, not a pause
constexpr unsigned kLongWithout = 2000;            // packets; then another identifier may tell
constexpr unsigned kTooLongWithout = 50000;

struct Reference {
    unsigned pid;
    std::uint64_t us;
};

// The clock reference of ISO/IEC 13818-1 in a packet, if there is one.
std::optional<Reference> reference_in(std::span<const std::uint8_t> packet) {
    const bool has_reference =
        (packet[3] & 0x20U) != 0 && packet[4] >= 7 && (packet[5] & 0x10U) != 0;
    if (!has_reference) {
        return std::nullopt;
    }
    std::uint64_t base = 0;  // in 1/90000 s
    for (std::size_t at = 6; at < 10; ++at) {
        base = base << 8U | packet[at];
    }
    base = base << 1U | packet[10] >> 7U;
    return Reference{(packet[1] & 0x1fU) << 8U | packet[2], base * 100 / 9};
}

// Calls `use` for all bytes of the file, until it returns false.
void read_file(int fd, const std::function<bool(std::span<const std::uint8_t>)>& use) {
    std::vector<std::uint8_t> buffer(kLargestMessage);
    off_t at = 0;
    ssize_t size;
    // pread(): a worker that is started again shares the place in the file with its supervisor.
    while ((size = pread(fd, buffer.data(), buffer.size(), at)) > 0 &&
           use({buffer.data(), static_cast<std::size_t>(size)})) {
        at += size;
    }
}

}  // namespace

bool can_be_paced(int fd) {
    Pacer pacer;
    bool has_clock = false;
    Packetizer packetizer([&](std::span<const std::uint8_t> message) {
        for (std::size_t at = 0; at < message.size() && !has_clock; at += kPacketSize) {
            has_clock = reference_in(message.subspan(at)).has_value();
            pacer.wait_us(message.subspan(at), 0);
        }
    });
    read_file(fd, [&](std::span<const std::uint8_t> bytes) {
        packetizer.feed(bytes);
        return !has_clock && !pacer.is_lost();
    });
    return has_clock;
}

std::uint64_t Pacer::wait_us(std::span<const std::uint8_t> packet, std::uint64_t now_us) {
    const auto reference = reference_in(packet);
    const bool is_new = !pid_ || without_ > kLongWithout;
    if (!reference || (!is_new && reference->pid != *pid_)) {
        ++without_;
        return 0;
    }
    const bool is_same = pid_ == reference->pid;
    pid_ = reference->pid;
    without_ = 0;
    if (!is_same || is_jump(reference->us) || now_us > clock_us_ + offset_us_ + kLargestStepUs) {
        offset_us_ = now_us - reference->us;
    }
    clock_us_ = reference->us;
    const std::uint64_t due_us = clock_us_ + offset_us_;
    return due_us > now_us ? due_us - now_us : 0;
}

bool Pacer::is_lost() const {
    return without_ > kTooLongWithout;
}

bool Pacer::is_jump(std::uint64_t clock_us) const {
    return clock_us < clock_us_ || clock_us - clock_us_ > kLargestStepUs;
}

FileSource::Played FileSource::play() {
    bool has_delivered = false;
    do {
        has_delivered = play_through();
    } while (has_delivered && !once_ && !interrupt_.is_raised());
    return {has_delivered, has_delivered ? "it has ended" : "it has no packets"};
}

bool FileSource::play_through() {
    StreamFeeder feeder(entrance_,
                        [&](std::span<const std::uint8_t> message) { push_paced(message); });
    pacer_ = {};
    read_file(file_.get(), [&](std::span<const std::uint8_t> bytes) {
        feeder.feed(bytes);
        return !interrupt_.is_raised() && !pacer_.is_lost();
    });
    if (!interrupt_.is_raised()) {
        feeder.finish();
    }
    return feeder.has_delivered();
}

void FileSource::push_paced(std::span<const std::uint8_t> message) {
    std::size_t begin = 0;
    for (std::size_t at = 0; at < message.size(); at += kPacketSize) {
        const std::uint64_t wait_us = pacer_.wait_us(message.subspan(at), zxtime_api_upTimeUs());
        if (wait_us > 0) {
            if (at > begin) {
                entrance_.push_waiting(message.subspan(begin, at - begin), interrupt_);
                begin = at;
            }
            interrupt_.pause(static_cast<int>((wait_us + 999) / 1000));
        }
    }
    entrance_.push_waiting(message.subspan(begin), interrupt_);
}

}  // namespace relay
