#include "stream/inbox.hpp"

namespace relay {

void Inbox::change(const ChannelList& closed, const ChannelList& opened) {
    {
        const tools::MutexGuard lock(mutex_);
        content_.closed.insert(content_.closed.end(), closed.begin(), closed.end());
        content_.opened.insert(content_.opened.end(), opened.begin(), opened.end());
        content_.has_changed = true;
    }
    wake_.set();
}

void Inbox::adopt(Guest guest) {
    {
        const tools::MutexGuard lock(mutex_);
        content_.guests.push_back(std::move(guest));
    }
    wake_.set();
}

void Inbox::disconnect(std::uint64_t client) {
    {
        const tools::MutexGuard lock(mutex_);
        content_.disconnected.push_back(client);
    }
    wake_.set();
}

void Inbox::close() {
    is_closed_ = true;
    wake_.set();
}

void Inbox::clear_wake() {
    wake_.clear();
    if (is_closed_) {  // close() may have come just before
        wake_.set();
    }
}

Inbox::Content Inbox::take() {
    const tools::MutexGuard lock(mutex_);
    return std::exchange(content_, {});
}

}  // namespace relay
