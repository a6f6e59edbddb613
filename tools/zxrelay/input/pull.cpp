#include "input/pull.hpp"

#include <csignal>

#include "input/stream_reader.hpp"
#include "input/transfer.hpp"
#include "zxcommon.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr char kProtocols[] = "http,https";
constexpr long kMostRedirects = 5;

struct Sink {
    StreamFeeder& feeder;
    const Interrupt& interrupt;
    unsigned timeout_seconds;
    bool is_silent = false;  // the server sends something, but no packets
};

// A CURLOPT_WRITEFUNCTION: less than it was given ends the transfer.
std::size_t write_to_sink(char* data, std::size_t, std::size_t size, void* sink_of_transfer) {
    Sink& sink = *static_cast<Sink*>(sink_of_transfer);
    sink.feeder.feed({reinterpret_cast<const std::uint8_t*>(data), size});
    sink.is_silent = sink.feeder.is_silent(sink.timeout_seconds);
    return sink.interrupt.is_raised() || sink.is_silent ? 0 : size;
}

// libcurl does not always keep OpenSSL from this signal, which would end the relay.
void block_broken_pipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

}  // namespace

HttpPull::Played HttpPull::play() {
    block_broken_pipe();
    StreamFeeder feeder(entrance_, interrupt_);
    Sink sink{feeder, interrupt_, timeout_seconds_};
    Transfer transfer(url_);
    transfer.set(CURLOPT_WRITEFUNCTION, write_to_sink);
    transfer.set(CURLOPT_WRITEDATA, &sink);
    transfer.set(CURLOPT_USERAGENT, "zxrelay");
    transfer.set(CURLOPT_FAILONERROR, 1L);
    transfer.set(CURLOPT_FOLLOWLOCATION, 1L);
    transfer.set(CURLOPT_MAXREDIRS, kMostRedirects);
    transfer.set(CURLOPT_PROTOCOLS_STR, kProtocols);
    transfer.set(CURLOPT_REDIR_PROTOCOLS_STR, kProtocols);
    transfer.set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    transfer.set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(timeout_seconds_));
    const std::string error = transfer.perform(interrupt_);
    if (sink.is_silent) {
        return {feeder.has_delivered(), "it is silent"};
    }
    return {feeder.has_delivered(), error.empty() ? "it has ended" : error};
}

TcpPull::Played TcpPull::play() {
    Transfer transfer("http://" + endpoint_.text());
    transfer.set(CURLOPT_CONNECT_ONLY, 1L);
    transfer.set(CURLOPT_PROXY, "");
    if (const std::string error = transfer.perform(interrupt_); !error.empty()) {
        return {false, error};
    }
    log({Level::notice, kTag}, "source %s is connected", entrance_.name().c_str());
    const Patience patience{timeout_seconds_};
    const Reading reading = read_stream(transfer.connection(), entrance_, interrupt_, patience);
    return {reading.has_delivered,
            reading.end == StreamEnd::silent ? "it is silent" : "it has ended"};
}

}  // namespace relay
