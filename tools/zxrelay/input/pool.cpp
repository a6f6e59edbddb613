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

bool takes_datagrams(const Url& url) {
    return url.scheme == Scheme::udp || url.scheme == Scheme::rtp;
}

// A fast sender may fill the socket while it is emptied, so there is a limit.
void drop_datagrams(const OpenInput& input) {
    constexpr int kMost = 1 << 17;
    if (takes_datagrams(input.url)) {
        for (int i = 0; i < kMost; ++i) {
            if (recv(input.fd.get(), nullptr, 0, MSG_DONTWAIT | MSG_TRUNC) < 0) {
                return;
            }
        }
    }
}

// True if the socket or the file of one URL can serve the other one.
bool has_same_socket(const Url& one, const Url& other) {
    return takes_datagrams(one) ? takes_datagrams(other) && one.endpoint == other.endpoint &&
                                      one.sender == other.sender
                                : one.text == other.text;
}

}  // namespace

void InputPool::add(const std::vector<std::string>& urls, const std::string& interface) {
    for (OpenInput& input : open_inputs(urls, interface)) {
        entries_.push_back({std::move(input)});
    }
}

std::vector<OpenInput> InputPool::take(const std::vector<std::string>& urls,
                                       const std::string& interface) {
    std::vector<OpenInput> inputs;
    try {
        for (const std::string& text : urls) {
            Url url = parse_url(text);
            Entry* const entry = find(url, interface, false);
            zxcommon::Descriptor fd =
                entry != nullptr ? descriptor_of(*entry) : open_input(url, interface);
            inputs.push_back({std::move(url), interface, std::move(fd)});
            if (entry != nullptr) {
                entry->is_taken = true;
                entry->is_idle = false;
            }
        }
    } catch (...) {
        give_back({urls.begin(), urls.begin() + static_cast<std::ptrdiff_t>(inputs.size())},
                  interface);
        throw;
    }
    return inputs;
}

// The user of the relay may not be allowed to open a file again: then the old one must do.
zxcommon::Descriptor InputPool::descriptor_of(Entry& entry) const {
    OpenInput& input = entry.input;
    if (entry.is_idle) {
        drop_datagrams(input);
    }
    if (opens_files_ && input.url.scheme == Scheme::file) {
        try {
            input.fd = open_input(input.url, input.interface);
        } catch (const tools::Failure&) {
            return duplicate(input);
        }
    }
    return duplicate(input);
}

void InputPool::give_back(const std::vector<std::string>& urls, const std::string& interface) {
    for (const std::string& url : urls) {
        if (Entry* const entry = find(parse_url(url), interface, true); entry != nullptr) {
            entry->is_taken = false;
        }
    }
}

void InputPool::note_idle() {
    for (Entry& entry : entries_) {
        entry.is_idle = entry.is_idle || !entry.is_taken;
    }
}

void InputPool::prepare_for(const std::vector<ChannelOptions>& wanted) {
    opens_files_ = true;
    std::erase_if(entries_, [&](const Entry& entry) {
        return !entry.is_taken && std::ranges::none_of(wanted, [&](const ChannelOptions& channel) {
            const std::vector<std::string> urls = input_urls(channel);
            return channel.interface == entry.input.interface &&
                   std::ranges::any_of(urls, [&](const std::string& url) {
                       return has_same_socket(entry.input.url, parse_url(url));
                   });
        });
    });
}

InputPool::Entry* InputPool::find(const Url& url, const std::string& interface, bool is_taken) {
    const auto found = std::ranges::find_if(entries_, [&](const Entry& entry) {
        return has_same_socket(entry.input.url, url) && entry.input.interface == interface &&
               entry.is_taken == is_taken;
    });
    return found != entries_.end() ? &*found : nullptr;
}

}  // namespace relay
