#include "station.hpp"

namespace relay {

Station::Station(const ChannelOptions& options, const ChannelSettings& settings,
                 std::vector<OpenInput> inputs, const Surroundings& around)
    : options_(options),
      channel_(std::make_shared<Channel>(settings,
                                         around.senders + (options.send_urls.empty() ? 0U : 1U))),
      inputs_(std::move(inputs),
              {options.source_timeout_seconds, options.once, around.sends_at_once}, *channel_) {
    if (!options.send_urls.empty()) {
        outputs_.emplace(options.send_urls, *channel_, around.senders);
    }
}

void Station::start() {
    if (outputs_) {
        outputs_->start();
    }
    inputs_.start();
}

void Station::stop() {
    inputs_.stop();
    if (outputs_) {
        outputs_->stop();
    }
}

bool Station::finished() const {
    return inputs_.finished() && channel_->empty() && (!outputs_ || outputs_->drained());
}

}  // namespace relay
