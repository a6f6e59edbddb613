// The channels that the relay has at the moment.
#pragma once

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "common/mutex.hpp"
#include "stream/channel.hpp"
#include "stream/stats.hpp"

namespace relay {

using ChannelPtr = std::shared_ptr<Channel>;
using ChannelList = std::vector<ChannelPtr>;

// Sorts by the ranks of the channels. They may change meanwhile, so each is read only once.
template <class Item, class ChannelOf>
void sort_by_rank(std::vector<Item>& items, ChannelOf channel_of) {
    std::vector<std::pair<unsigned, Item>> ranked;
    ranked.reserve(items.size());
    for (Item& item : items) {
        const unsigned rank = channel_of(item).rank;
        ranked.emplace_back(rank, std::move(item));
    }
    std::ranges::stable_sort(ranked, {}, [](const auto& one) { return one.first; });
    std::ranges::transform(ranked, items.begin(), [](auto& one) { return std::move(one.second); });
}

// Any thread may call it.
class Roster {
public:
    // Also sorts the channels anew.
    void change(const ChannelList& closed, const ChannelList& opened);

    // In the order of their ranks.
    [[nodiscard]] ChannelList channels() const;

    // The sums of all channels, also of those that are closed.
    [[nodiscard]] Counters total() const;

    // Of the fullest queue of all.
    [[nodiscard]] double fill_ratio() const;

    GuestStats guests;

private:
    mutable tools::Mutex mutex_;
    ChannelList channels_ ZX_GUARDED_BY(mutex_);
    Counters closed_ ZX_GUARDED_BY(mutex_);
};

}  // namespace relay
