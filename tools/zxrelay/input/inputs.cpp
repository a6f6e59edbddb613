#include "input/inputs.hpp"

#include <algorithm>

#include "input/datagram.hpp"
#include "input/file.hpp"
#include "input/pull.hpp"
#include "input/sockets.hpp"
#include "input/standard_input.hpp"
#include "input/tcp_listener.hpp"
#include "zxtime.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr int kFailurePauseMs = 1000;

std::unique_ptr<Source> make_source(OpenInput input, const InputOptions& options,
                                    Entrance& entrance) {
    const unsigned timeout = options.timeout_seconds;
    switch (input.url.scheme) {
        case Scheme::udp:
        case Scheme::rtp:
            return std::make_unique<DatagramSource>(std::move(input), entrance, options.at_once);
        case Scheme::tcp_listen:
            return std::make_unique<TcpListener>(std::move(input.fd), entrance, timeout,
                                                 options.once);
        case Scheme::tcp_connect:
            return std::make_unique<TcpPull>(input.url, entrance, timeout, options.once);
        case Scheme::http:
            return std::make_unique<HttpPull>(input.url, entrance, timeout, options.once);
        case Scheme::file:
            return std::make_unique<FileSource>(std::move(input.fd), entrance, options.once);
        case Scheme::standard_input:
            break;
    }
    return std::make_unique<StandardInput>(std::move(input.fd), entrance);
}

std::vector<std::string> names_of(const std::vector<OpenInput>& inputs) {
    std::vector<std::string> names;
    std::ranges::transform(inputs, std::back_inserter(names),
                           [](const OpenInput& input) { return input.url.shown(); });
    return names;
}

std::string thread_name(std::size_t rank) {
    return rank == 0 ? "relay-receive" : "relay-backup-" + std::to_string(rank);
}

}  // namespace

std::vector<OpenInput> open_inputs(const std::vector<std::string>& urls,
                                   const std::string& interface) {
    std::vector<OpenInput> inputs;
    for (const std::string& text : urls) {
        Url url = parse_url(text);
        zxcommon::Descriptor fd = open_input(url, interface);
        inputs.push_back({std::move(url), interface, std::move(fd)});
    }
    return inputs;
}

Inputs::Lane::Lane(OpenInput input, const InputOptions& options, Channel& channel,
                   Selector& selector, std::size_t rank)
    : entrance(channel, selector, rank),
      source(make_source(std::move(input), options, entrance)),
      worker(thread_name(rank), [this](zxcommon::StopRequest&) { run(); }) {}

void Inputs::Lane::run() {
    while (!source->is_done()) {
        try {
            source->run();
        } catch (const std::exception& failure) {  // such as memory that is short now
            log({Level::error, kTag}, "source %s: %s", entrance.name().c_str(), failure.what());
            source->pause(kFailurePauseMs);
        }
    }
}

Inputs::Inputs(std::vector<OpenInput> open, const InputOptions& options, Channel& channel)
    : selector_(names_of(open), zxtime_api_upTimeUs()) {
    for (std::size_t rank = 0; rank < open.size(); ++rank) {
        lanes_.emplace_back(std::move(open[rank]), options, channel, selector_, rank);
    }
}

void Inputs::start() {
    for (Lane& lane : lanes_) {
        lane.worker.start();
    }
}

void Inputs::stop() {
    for (Lane& lane : lanes_) {
        lane.source->interrupt();
    }
    for (Lane& lane : lanes_) {
        lane.worker.stop();
    }
}

}  // namespace relay
