// Reads any text as the relay's configuration file.
#include <sys/mman.h>
#include <unistd.h>

#include <cctype>
#include <set>
#include <string>

#include "common/failure.hpp"
#include "config/config.hpp"
#include "config/network.hpp"
#include "config/url.hpp"
#include "output/target.hpp"
#include "support.hpp"

namespace {

using zx::fuzz::require;

// A file in memory, which the configuration can name.
class MemoryFile {
public:
    explicit MemoryFile(zx::fuzz::Bytes content) {
        require(write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()),
                "a file in memory");
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    const int fd_ = memfd_create("configuration", MFD_CLOEXEC);
};

// Every text has been checked: none of these throws.
void check_channel(const relay::ChannelOptions& channel) {
    require(!channel.name.empty() && !channel.input_url.empty(), "a name and an input");
    relay::parse_url(channel.input_url);
    for (const std::string& url : channel.backup_urls) {
        relay::parse_url(url);
    }
    for (const std::string& url : channel.send_urls) {
        const relay::Target target = relay::parse_target(url);
        require(target.text == url && (!target.ttl || (*target.ttl > 0 && *target.ttl < 256)),
                "where datagrams go");
    }
    require(channel.fifo_bytes >= 128U << 10U && channel.fifo_bytes <= 1U << 30U, "a size");
    require(channel.keep_seconds <= 86400, "a time");
}

void check(const relay::Config& config) {
    std::set<std::string> names;
    for (const relay::ChannelOptions& channel : config.channels) {
        check_channel(channel);
        require(names.insert(channel.name).second, "names that differ");
    }
    require(!names.empty() || !config.on_demand.networks.empty(), "something to do");
    for (const std::string& text : config.on_demand.networks) {
        const relay::Network network = relay::parse_network(text);
        require(network.contains(network.address), "a network contains its own address");
    }
}

// "FILE:12: what is wrong", or a sentence about the options as a whole.
void check_refusal(const std::string& sentence, const std::string& path) {
    if (sentence.starts_with(path)) {
        const std::size_t colon = sentence.find(": ", path.size());
        require(colon > path.size() + 1 && colon != std::string::npos &&
                    sentence.find_first_not_of("0123456789", path.size() + 1) == colon,
                "the line");
    }
    require(sentence.find('\n') == std::string::npos, "one sentence");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const MemoryFile file({data, size});
    std::string arguments[] = {"zxrelay", "--output", "127.0.0.1:8000", "--config", file.path()};
    char* argv[5];
    std::ranges::transform(arguments, argv, [](std::string& text) { return text.data(); });
    const relay::CommandLine command_line(5, argv);
    try {
        const relay::Config config = command_line.read();
        check(config);
        require(config == command_line.read(), "the same file gives the same");
    } catch (const tools::Failure& failure) {
        check_refusal(failure.what(), file.path());
    }
    return 0;
}
