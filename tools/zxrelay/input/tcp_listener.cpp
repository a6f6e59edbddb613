#include "input/tcp_listener.hpp"

#include "input/stream_reader.hpp"
#include "stream/net.hpp"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kWaitMs = 1000;  // then the report may be due
constexpr int kErrorPauseMs = 100;

}  // namespace

TcpListener::TcpListener(zxcommon::Descriptor listener, Entrance& entrance,
                         unsigned timeout_seconds, bool once)
    : listener_(std::move(listener)),
      entrance_(entrance),
      timeout_seconds_(timeout_seconds),
      once_(once) {}

void TcpListener::run() {
    while (!is_done()) {
        const bool is_report_due = served_.report_when_due();
        entrance_.report_when_due();
        if (interrupt_.wait(listener_.get(), is_report_due ? kWaitMs : kForever)) {
            serve();
        }
    }
}

void TcpListener::serve() {
    std::string peer;
    const zxcommon::Descriptor fd = accept_connection(listener_.get(), peer);
    if (!fd) {
        interrupt_.pause(kErrorPauseMs);  // without descriptors, it would fail again at once
        return;
    }
    const bool is_logged = served_.admits();
    if (is_logged) {
        log({Level::notice, kTag}, "source %s has connected", peer.c_str());
    }
    const Patience patience{timeout_seconds_, listener_.get()};
    const Reading reading = read_stream(fd.get(), entrance_, interrupt_, patience);
    const bool is_silent = reading.end == StreamEnd::silent;
    if (is_logged && is_silent) {
        log({Level::warning, kTag}, "source %s is silent and yields to another one", peer.c_str());
    } else if (is_logged) {
        log({Level::notice, kTag}, "source %s has ended", peer.c_str());
    }
    finished_ = once_ && !is_silent && reading.has_delivered;
}

}  // namespace relay
