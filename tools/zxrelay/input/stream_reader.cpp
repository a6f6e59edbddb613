#include "input/stream_reader.hpp"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "common/seconds.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;

constexpr int kWaitMs = 1000;

StreamEnd read_until_end(int fd, StreamFeeder& feeder, const Interrupt& interrupt,
                         Patience patience) {
    while (!interrupt.is_raised()) {
        const bool is_silent = feeder.is_silent(patience.seconds);
        if (is_silent && (patience.rival < 0 || is_readable(patience.rival))) {
            return StreamEnd::silent;
        }
        if (interrupt.wait(fd, kWaitMs, is_silent ? patience.rival : -1) && !feeder.read_from(fd)) {
            return StreamEnd::closed;
        }
    }
    return StreamEnd::stopped;
}

}  // namespace

StreamFeeder::StreamFeeder(Entrance& entrance, Packetizer::Emit emit)
    : entrance_(entrance),
      emit_(std::move(emit)),
      packetizer_([this](std::span<const std::uint8_t> message) { deliver(message); }),
      last_packet_us_(zxtime_api_upTimeUs()) {}

StreamFeeder::StreamFeeder(Entrance& entrance, const Interrupt& interrupt)
    : StreamFeeder(entrance, [&](std::span<const std::uint8_t> message) {
          entrance.push_waiting(message, interrupt);
      }) {}

void StreamFeeder::finish() {
    packetizer_.finish();
    count_skipped();
    entrance_.report_when_due();
}

void StreamFeeder::deliver(std::span<const std::uint8_t> message) {
    emit_(message);
    has_delivered_ = true;
    last_packet_us_ = zxtime_api_upTimeUs();
}

void StreamFeeder::feed(std::span<const std::uint8_t> bytes) {
    entrance_.count_received(bytes.size());
    packetizer_.feed(bytes);
    count_skipped();
}

bool StreamFeeder::read_from(int fd) {
    const std::span<std::uint8_t> room = packetizer_.room();
    const ssize_t size = read(fd, room.data(), room.size());
    if (size <= 0) {
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    }
    entrance_.count_received(static_cast<std::size_t>(size));
    packetizer_.commit(static_cast<std::size_t>(size));
    count_skipped();
    return true;
}

bool StreamFeeder::is_silent(unsigned seconds) const {
    return zxtime_api_upTimeUs() - last_packet_us_ >= seconds * kMicro;
}

void StreamFeeder::count_skipped() {
    const std::uint64_t skipped = packetizer_.skipped();
    entrance_.count_skipped(skipped - std::exchange(counted_skipped_, skipped));
}

Reading read_stream(int fd, Entrance& entrance, const Interrupt& interrupt, Patience patience) {
    StreamFeeder feeder(entrance, interrupt);
    const StreamEnd end = read_until_end(fd, feeder, interrupt, patience);
    if (end != StreamEnd::stopped) {
        feeder.finish();
    }
    return {end, feeder.has_delivered()};
}

}  // namespace relay
