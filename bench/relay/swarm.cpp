// Many readers of a stream of numbered packets, in one thread, and what they cost a server.
//
//   swarm tcp|udp|/PATH PORT CLIENTS SECONDS PID
//
// With a PATH, the readers ask for it by HTTP. One second after the last reader has connected, it
// begins to measure the server PID. After SECONDS, it prints one line:
//
//   RECEIVING ENDED LOST BYTES PROCESSOR_MS RSS_KIB
//
// how many readers have received something, how many connections the server has ended, and how many
// packets are missing between the first and the last one of each reader; then what all readers have
// received in SECONDS, the processor time that the server took in SECONDS, and its memory.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <unordered_map>
#include <vector>

#include "support.hpp"

namespace bench {
namespace {

constexpr std::string_view kEndOfHeader = "\r\n\r\n";
using namespace std::chrono_literals;
using Time = std::chrono::steady_clock;

struct Cost {
    long processor_ms;
    long rss_kib;
};

// From the fields of proc(5), which are numbered from 1.
Cost cost_of(const std::string& pid) {
    constexpr std::size_t kUserTime = 14;
    constexpr std::size_t kSystemTime = 15;
    constexpr std::size_t kPages = 24;
    constexpr std::size_t kFirstAfterName = 3;  // the name is in parentheses and may have blanks
    std::ifstream file("/proc/" + pid + "/stat");
    const std::string line{std::istreambuf_iterator<char>(file), {}};
    std::istringstream text(line.substr(line.rfind(')') + 2));
    const std::vector<std::string> fields{std::istream_iterator<std::string>(text), {}};
    const auto field = [&](std::size_t number) {
        return std::stol(fields.at(number - kFirstAfterName));
    };
    return {(field(kUserTime) + field(kSystemTime)) * 1000 / sysconf(_SC_CLK_TCK),
            field(kPages) * sysconf(_SC_PAGESIZE) / 1024};
}

class Reader {
public:
    Reader(zxcommon::Descriptor fd, bool has_header) : fd_(std::move(fd)), in_header_(has_header) {}

    [[nodiscard]] int fd() const { return fd_.get(); }
    [[nodiscard]] bool receives() const { return bytes_ != 0; }
    [[nodiscard]] std::uint64_t bytes() const { return bytes_; }
    [[nodiscard]] std::uint64_t lost() const { return lost_; }

    // Takes what a read gave.
    void take(std::span<const std::uint8_t> bytes) {
        if (in_header_ && !take_header(bytes)) {
            return;  // a server that refuses closes the connection
        }
        bytes_ += bytes.size();
        if (!rest_.empty()) {
            const std::size_t missing = std::min(kPacketSize - rest_.size(), bytes.size());
            rest_.append(reinterpret_cast<const char*>(bytes.data()), missing);
            bytes = bytes.subspan(missing);
            if (rest_.size() == kPacketSize) {
                check(reinterpret_cast<const std::uint8_t*>(rest_.data()));
                rest_.clear();
            }
        }
        take_packets(bytes);
    }

private:
    // Returns true after the end of the header, whose bytes are cut off.
    bool take_header(std::span<const std::uint8_t>& bytes) {
        const std::size_t before = rest_.size();
        rest_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        const std::size_t end = rest_.find(kEndOfHeader);
        if (end == std::string::npos || rest_.find(" 200 ") > end) {
            return false;
        }
        bytes = bytes.subspan(end + kEndOfHeader.size() - before);
        rest_.clear();
        in_header_ = false;
        return true;
    }

    // Leaves less than a packet in `rest_`.
    void take_packets(std::span<const std::uint8_t> bytes) {
        while (bytes.size() >= kPacketSize) {
            if (!has_number_ && !begins_packet(bytes.data())) {
                bytes = bytes.subspan(1);  // some servers begin in the middle of a packet
                continue;
            }
            check(bytes.data());
            bytes = bytes.subspan(kPacketSize);
        }
        rest_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }

    static bool begins_packet(const std::uint8_t* bytes) {
        return bytes[0] == kSyncByte && bytes[1] == 0x01 && bytes[2] == 0x00;
    }

    void check(const std::uint8_t* packet) {
        const std::uint64_t number = read_number(packet);
        const bool is_packet = begins_packet(packet);
        if (has_number_) {
            lost_ += is_packet && number > last_ ? number - last_ - 1 : 1;
        }
        last_ = number;
        has_number_ = is_packet;
    }

    zxcommon::Descriptor fd_;
    bool in_header_;
    bool has_number_ = false;
    std::string rest_;  // of a header or of a packet
    std::uint64_t last_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint64_t lost_ = 0;
};

class Swarm {
public:
    void add(const char* what, const char* port) {
        const bool by_http = what[0] == '/';
        auto fd = std::strcmp(what, "udp") == 0 ? bind_to(port, SOCK_DGRAM)
                                                : connect_to(port, SOCK_STREAM);
        if (by_http) {
            const std::string request =
                std::string("GET ") + what + " HTTP/1.0\r\nHost: localhost\r\n\r\n";
            send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
        }
        const int number = fd.get();
        if (!epoll_.add(number, EPOLLIN)) {
            throw tools::system_failure("cannot wait for a reader");
        }
        readers_.emplace(number, std::make_unique<Reader>(std::move(fd), by_http));
    }

    // Reads what is there, and waits for it up to this long.
    void turn(int timeout_ms) {
        epoll_event room[256];
        for (const epoll_event& event : epoll_.wait(room, timeout_ms)) {
            Reader& reader = *readers_.at(event.data.fd);
            const ssize_t size = recv(reader.fd(), buffer_.data(), buffer_.size(), MSG_DONTWAIT);
            if (size > 0) {
                reader.take({buffer_.data(), static_cast<std::size_t>(size)});
            } else if (size == 0 || errno != EAGAIN) {
                epoll_.del(reader.fd());
                ++ended_;
            }
        }
    }

    void read_for(std::chrono::milliseconds time) {
        const auto end = Time::now() + time;
        while (Time::now() < end) {
            turn(1);
        }
    }

    [[nodiscard]] std::uint64_t bytes() const { return sum(&Reader::bytes); }
    [[nodiscard]] std::uint64_t lost() const { return sum(&Reader::lost); }
    [[nodiscard]] std::uint64_t receiving() const { return sum(&Reader::receives); }
    [[nodiscard]] std::uint64_t ended() const { return ended_; }

private:
    template <typename Number>
    std::uint64_t sum(Number (Reader::*number)() const) const {
        std::uint64_t all = 0;
        for (const auto& [fd, reader] : readers_) {
            all += (reader.get()->*number)();
        }
        return all;
    }

    zxcommon::Epoll epoll_;
    std::unordered_map<int, std::unique_ptr<Reader>> readers_;  // by descriptor
    std::vector<std::uint8_t> buffer_ = std::vector<std::uint8_t>(256U << 10U);
    std::uint64_t ended_ = 0;
};

void run(const char* what, const char* port, unsigned long clients, unsigned long seconds,
         const std::string& pid) {
    constexpr auto kPause = 2ms;  // some servers have room for few connections that wait
    Swarm swarm;
    const auto deadline = Time::now() + 20s;
    for (unsigned long i = 0; i < clients && Time::now() < deadline; ++i) {
        swarm.add(what, port);
        swarm.read_for(kPause);
    }
    swarm.read_for(1s);
    const std::uint64_t bytes = swarm.bytes();
    const Cost before = cost_of(pid);
    swarm.read_for(std::chrono::seconds(seconds));
    const Cost after = cost_of(pid);
    std::printf("%lu %lu %lu %lu %ld %ld\n", swarm.receiving(), swarm.ended(), swarm.lost(),
                swarm.bytes() - bytes, after.processor_ms - before.processor_ms, after.rss_kib);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fputs("usage: swarm tcp|udp|/PATH PORT CLIENTS SECONDS PID\n", stderr);
        return 2;
    }
    return tools::run("swarm", [&] {
        bench::run(argv[1], argv[2], std::strtoul(argv[3], nullptr, 10),
                   std::strtoul(argv[4], nullptr, 10), argv[5]);
    });
}
