#include "stream/source.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "common/failure.hpp"
#include "stream/net.hpp"
#include "zxcommon.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kWaitMs = 1000;
constexpr std::uint64_t kReportIntervalUs = 1000000;

constexpr std::int32_t kTimedOut = -1;
constexpr std::int32_t kFailed = -2;
constexpr useconds_t kErrorPauseUs = 10000;

}  // namespace

Source::Source(zxcommon::Descriptor socket, bool is_udp, bool once, Channel& channel, Stats& stats)
    : is_udp_(is_udp),
      once_(once),
      channel_(channel),
      stats_(stats),
      socket_(std::move(socket)),
      interrupted_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      buffer_(kLargestMessage) {
    if (!epoll_.add(socket_.get(), EPOLLIN) || !epoll_.add(interrupted_.get(), EPOLLIN)) {
        throw tools::system_failure("cannot wait for the source");
    }
}

void Source::run(zxcommon::StopRequest& stop) {
    if (is_udp_) {
        receive_datagrams(stop);
    } else {
        serve_connections(stop);
    }
}

void Source::interrupt() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(interrupted_.get(), &one, sizeof one);
    const std::scoped_lock lock(connection_mutex_);
    if (connection_ >= 0) {
        shutdown(connection_, SHUT_RD);
    }
}

void Source::receive_datagrams(zxcommon::StopRequest& stop) {
    while (!stop.seen()) {
        if (!wait_for_socket()) {
            continue;
        }
        const std::int32_t size = receive(socket_.get());
        if (size > 0) {
            const std::span datagram(buffer_.data(), static_cast<std::size_t>(size));
            if (is_transport_stream(datagram)) {
                push(datagram, stop);
            } else {
                count_skipped(datagram.size());
            }
        } else if (size < kTimedOut) {
            usleep(kErrorPauseUs);
        }
    }
    report_losses();
}

void Source::serve_connections(zxcommon::StopRequest& stop) {
    while (!stop.seen() && !finished_) {
        if (!wait_for_socket()) {
            continue;
        }
        std::string peer;
        const zxcommon::Descriptor fd(accept_connection(socket_.get(), peer));
        if (!fd) {
            continue;
        }
        log({Level::notice, kTag}, "source %s has connected", peer.c_str());
        receive_stream(stop, fd.get());
        log({Level::notice, kTag}, "source %s has ended", peer.c_str());
        finished_ = once_;
    }
}

void Source::receive_stream(zxcommon::StopRequest& stop, int fd) {
    {
        const std::scoped_lock lock(connection_mutex_);
        connection_ = fd;
    }
    Packetizer packetizer([&](std::span<const std::uint8_t> message) { push(message, stop); });
    std::uint64_t skipped = 0;
    while (!stop.seen()) {
        const std::int32_t size = receive(fd);
        if (size > 0) {
            packetizer.feed({buffer_.data(), static_cast<std::size_t>(size)});
        } else if (size != kTimedOut) {
            break;
        }
        count_skipped(packetizer.skipped() - skipped);
        skipped = packetizer.skipped();
    }
    packetizer.finish();
    count_skipped(packetizer.skipped() - skipped);
    report_losses();
    const std::scoped_lock lock(connection_mutex_);
    connection_ = -1;
}

// Returns true if the socket is readable. interrupt() ends the wait through a descriptor of its
// own: shutdown() of the socket would also close it for the watchdog, which shares it.
bool Source::wait_for_socket() {
    epoll_event room[2];
    const auto events = epoll_.wait(room, kWaitMs);
    return std::any_of(events.begin(), events.end(),
                       [this](const epoll_event& event) { return event.data.fd == socket_.get(); });
}

// Returns the number of bytes received, 0 at the end of the connection, kTimedOut, or kFailed. It
// needs no descriptor, so clients that take all of them do not stop the stream.
std::int32_t Source::receive(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, kWaitMs) <= 0) {
        return kTimedOut;
    }
    const ssize_t size = recv(fd, buffer_.data(), buffer_.size(), MSG_DONTWAIT);
    if (size < 0) {
        return errno == EAGAIN || errno == EINTR ? kTimedOut : kFailed;
    }
    stats_.bytes_in += static_cast<std::uint64_t>(size);
    return static_cast<std::int32_t>(size);
}

// A TCP source waits until there is room.
void Source::push(std::span<const std::uint8_t> message, zxcommon::StopRequest& stop) {
    if (is_udp_ ? channel_.push(message) : channel_.push_waiting(message, stop)) {
        ++stats_.messages_in;
    } else {
        ++stats_.dropped_fifo_full;
        if (zxtime_api_counterAsyncUs(&last_report_, kReportIntervalUs) == 1) {
            report_losses();
        }
    }
}

void Source::count_skipped(std::uint64_t bytes) {
    stats_.bytes_no_stream += bytes;
    if (bytes != 0 && zxtime_api_counterAsyncUs(&last_report_, kReportIntervalUs) == 1) {
        report_losses();
    }
}

void Source::report_losses() {
    const std::uint64_t drops = stats_.dropped_fifo_full;
    if (drops != reported_drops_) {
        log({Level::warning, kTag}, "the FIFO is full: %llu messages dropped",
            static_cast<unsigned long long>(drops - reported_drops_));
        reported_drops_ = drops;
    }
    const std::uint64_t skipped = stats_.bytes_no_stream;
    if (skipped != reported_skipped_) {
        log({Level::warning, kTag},
            "skipped %llu bytes of the source that are not transport stream packets",
            static_cast<unsigned long long>(skipped - reported_skipped_));
        reported_skipped_ = skipped;
    }
}

}  // namespace relay
