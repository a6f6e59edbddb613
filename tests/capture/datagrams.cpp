// Sends datagrams of 1316 bytes, as transport streams have them, evenly in every millisecond:
// datagrams ADDRESS PORT COUNT RATE. RATE: datagrams per second.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr std::size_t kSize = 1316;
constexpr long kBatch = 256;

long number(const char* text) {
    return std::strtol(text, nullptr, 10);
}

// False, with errno: the network is down.
bool send_some(int fd, long count) {
    static std::array<char, kSize> bytes;
    static iovec content{bytes.data(), bytes.size()};
    static std::array<mmsghdr, kBatch> messages;
    for (mmsghdr& message : messages) {
        message.msg_hdr.msg_iov = &content;
        message.msg_hdr.msg_iovlen = 1;
    }
    while (count > 0) {
        const int sent =
            sendmmsg(fd, messages.data(), static_cast<unsigned>(std::min(count, kBatch)), 0);
        if (sent < 0) {
            return false;
        }
        count -= sent;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        return 2;
    }
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(number(argv[2])));
    inet_pton(AF_INET, argv[1], &to.sin_addr);
    const long count = number(argv[3]);
    const long rate = number(argv[4]);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        std::perror("connect");
        return 1;
    }
    timespec due{};
    clock_gettime(CLOCK_MONOTONIC, &due);
    long sent = 0;
    for (long millisecond = 1; sent < count; ++millisecond) {
        const long target = std::min(count, rate * millisecond / 1000);
        if (!send_some(fd, target - sent)) {
            std::perror("send");
            return 1;
        }
        sent = target;
        due.tv_nsec += 1000000;
        due.tv_sec += due.tv_nsec / 1000000000;
        due.tv_nsec %= 1000000000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    }
}
