// Sends a transport stream of numbered packets evenly, seven packets at a time.
//
//   paced_source tcp|udp PORT MBIT [FIRST]
//
// MBIT: megabits per second; 0: as fast as the receiver takes it (tcp). FIRST: bytes that are sent
// before the stream, such as the header of an HTTP request. It ends when the receiver has gone.
#include <ctime>
#include <vector>

#include "support.hpp"

namespace bench {
namespace {

constexpr std::uint64_t kNano = 1000000000;

// Sends messages at their time, counted from the start: a late one does not delay the next ones.
class Clock {
public:
    explicit Clock(double bits_per_second)
        : ns_per_byte_(bits_per_second > 0 ? 8.0 * kNano / bits_per_second : 0) {
        clock_gettime(CLOCK_MONOTONIC, &begin_);
    }

    void wait_for(std::uint64_t byte) const {
        if (ns_per_byte_ == 0) {
            return;
        }
        const std::uint64_t ns = static_cast<std::uint64_t>(begin_.tv_nsec) +
                                 static_cast<std::uint64_t>(ns_per_byte_ * double(byte));
        const timespec due{begin_.tv_sec + static_cast<time_t>(ns / kNano),
                           static_cast<long>(ns % kNano)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    }

private:
    const double ns_per_byte_;
    timespec begin_{};
};

// False when the receiver has gone.
bool send_all(int fd, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            return errno == ECONNREFUSED;  // datagrams: nobody listens yet
        }
        bytes = bytes.subspan(static_cast<std::size_t>(sent));
    }
    return true;
}

void send_stream(int fd, double mbit) {
    constexpr std::size_t kMessagesAtFullSpeed = 48;
    std::vector<std::uint8_t> message(mbit > 0 ? kMessageSize
                                               : kMessagesAtFullSpeed * kMessageSize);
    const Clock clock(mbit * 1e6);
    std::uint64_t number = 0;
    do {
        clock.wait_for(number * kPacketSize);
        for (std::size_t at = 0; at < message.size(); at += kPacketSize) {
            write_packet(&message[at], number++);
        }
    } while (send_all(fd, message));
}

void run(const char* type, const char* port, const char* mbit, std::string_view first) {
    const zxcommon::Descriptor fd = connect_to(port, socket_type(type));
    if (send_all(fd.get(), {reinterpret_cast<const std::uint8_t*>(first.data()), first.size()})) {
        send_stream(fd.get(), std::strtod(mbit, nullptr));
    }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc != 4 && argc != 5) {
        std::fputs("usage: paced_source tcp|udp PORT MBIT [FIRST]\n", stderr);
        return 2;
    }
    return tools::run("paced_source",
                      [&] { bench::run(argv[1], argv[2], argv[3], argc == 5 ? argv[4] : ""); });
}
