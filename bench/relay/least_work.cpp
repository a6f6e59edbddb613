// The least work that a relay can do: every 20 ms, it reads what the source has sent, and calls
// send() once for each client. It looks at nothing, and a client that does not accept all of it is
// disconnected. What a real relay needs beyond that is the price of its services.
//
//   least_work SOURCE_PORT CLIENT_PORT
#include <fcntl.h>

#include <chrono>
#include <vector>

#include "support.hpp"

namespace bench {
namespace {

using Clients = std::vector<zxcommon::Descriptor>;

void welcome(int listener, Clients& clients) {
    int fd;
    while ((fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)) >= 0) {
        clients.emplace_back(fd);
    }
}

void send_to_all(Clients& clients, std::span<const std::uint8_t> bytes) {
    std::erase_if(clients, [bytes](const zxcommon::Descriptor& client) {
        return send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
               static_cast<ssize_t>(bytes.size());
    });
}

// Returns at the end of the source.
void relay(int source, int listener) {
    constexpr std::chrono::milliseconds kTick(20);
    Clients clients;
    std::vector<std::uint8_t> buffer(1U << 20U);
    for (auto due = std::chrono::steady_clock::now();; due += kTick) {
        std::this_thread::sleep_until(due);
        welcome(listener, clients);
        const ssize_t size = recv(source, buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size == 0 || (size < 0 && errno != EAGAIN)) {
            return;
        }
        if (size > 0) {
            send_to_all(clients, {buffer.data(), static_cast<std::size_t>(size)});
        }
    }
}

void run(const char* source_port, const char* client_port) {
    const zxcommon::Descriptor sources = bind_to(source_port, SOCK_STREAM);
    const zxcommon::Descriptor listener = bind_to(client_port, SOCK_STREAM);
    fcntl(listener.get(), F_SETFL, O_NONBLOCK);
    const zxcommon::Descriptor source(accept(sources.get(), nullptr, nullptr));
    relay(source.get(), listener.get());
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: least_work SOURCE_PORT CLIENT_PORT\n", stderr);
        return 2;
    }
    return tools::run("least_work", [&] { bench::run(argv[1], argv[2]); });
}
