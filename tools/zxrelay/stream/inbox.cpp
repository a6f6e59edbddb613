#include "stream/inbox.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include "common/failure.hpp"

namespace relay {

Inbox::Inbox() : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) {
        throw tools::system_failure("no descriptor for a sender");
    }
}

void Inbox::change(const ChannelList& closed, const ChannelList& opened) {
    {
        const std::scoped_lock lock(mutex_);
        content_.closed.insert(content_.closed.end(), closed.begin(), closed.end());
        content_.opened.insert(content_.opened.end(), opened.begin(), opened.end());
    }
    wake();
}

void Inbox::adopt(Guest guest) {
    {
        const std::scoped_lock lock(mutex_);
        content_.guests.push_back(std::move(guest));
    }
    wake();
}

void Inbox::disconnect(std::uint64_t client) {
    {
        const std::scoped_lock lock(mutex_);
        content_.disconnected.push_back(client);
    }
    wake();
}

void Inbox::close() {
    is_closed_ = true;
    wake();
}

void Inbox::wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t put = write(wake_.get(), &one, sizeof one);
}

void Inbox::clear_wake() {
    if (!is_closed_) {
        std::uint64_t count;
        [[maybe_unused]] const ssize_t got = read(wake_.get(), &count, sizeof count);
    }
}

Inbox::Content Inbox::take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(content_, {});
}

}  // namespace relay
