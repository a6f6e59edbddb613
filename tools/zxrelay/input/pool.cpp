#include "input/pool.hpp"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "common/failure.hpp"
#include "input/sockets.hpp"

namespace relay {
namespace {

zxcommon::Descriptor duplicate(const OpenInput& input) {
    if (!input.fd) {
        return {};  // an input that connects
    }
    zxcommon::Descriptor fd(fcntl(input.fd.get(), F_DUPFD_CLOEXEC, 0));
    if (!fd) {
        throw tools::system_failure("no descriptor for " + input.url.shown());
    }
    return fd;
}

// A fast sender may fill the socket while it is emptied, so there is a limit.
void drop_datagrams(const OpenInput& input) {
    constexpr int kMost = 1 << 17;
    if (input.url.scheme == Scheme::udp || input.url.scheme == Scheme::rtp) {
        for (int i = 0; i < kMost; ++i) {
            if (recv(input.fd.get(), nullptr, 0, MSG_DONTWAIT | MSG_TRUNC) < 0) {
                return;
            }
        }
    }
}

}  // namespace

void InputPool::add(const std::vector<std::string>& urls, const std::string& interface) {
    for (OpenInput& input : open_inputs(urls, interface)) {
        entries_.push_back({std::move(input), interface});
    }
}

std::vector<OpenInput> InputPool::take(const std::vector<std::string>& urls,
                                       const std::string& interface) {
    std::vector<OpenInput> inputs;
    try {
        for (const std::string& text : urls) {
            Url url = parse_url(text);
            Entry* const entry = find(text, interface, false);
            zxcommon::Descriptor fd =
                entry != nullptr ? duplicate(entry->input) : open_input(url, interface);
            inputs.push_back({std::move(url), std::move(fd)});
            if (entry != nullptr) {
                entry->is_taken = true;
                if (std::exchange(entry->is_idle, false)) {
                    drop_datagrams(entry->input);
                }
            }
        }
    } catch (...) {
        give_back({urls.begin(), urls.begin() + static_cast<std::ptrdiff_t>(inputs.size())},
                  interface);
        throw;
    }
    return inputs;
}

void InputPool::give_back(const std::vector<std::string>& urls, const std::string& interface) {
    for (const std::string& url : urls) {
        if (Entry* const entry = find(url, interface, true); entry != nullptr) {
            entry->is_taken = false;
        }
    }
}

void InputPool::note_idle() {
    for (Entry& entry : entries_) {
        entry.is_idle = entry.is_idle || !entry.is_taken;
    }
}

void InputPool::drop_spare() {
    std::erase_if(entries_, [](const Entry& entry) { return !entry.is_taken; });
}

InputPool::Entry* InputPool::find(const std::string& url, const std::string& interface,
                                  bool is_taken) {
    const auto found = std::ranges::find_if(entries_, [&](const Entry& entry) {
        return entry.input.url.text == url && entry.interface == interface &&
               entry.is_taken == is_taken;
    });
    return found != entries_.end() ? &*found : nullptr;
}

}  // namespace relay
