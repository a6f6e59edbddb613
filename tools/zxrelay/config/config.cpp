#include "config/config.hpp"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "common/command_line.hpp"
#include "common/failure.hpp"
#include "config/network.hpp"
#include "config/table.hpp"
#include "config/url.hpp"
#include "output/target.hpp"

namespace relay {
namespace {

namespace fs = std::filesystem;

constexpr char kChannel[] = "channel";
constexpr char kOnDemand[] = "on-demand";

// The address of a host that is written as one; nothing for a name.
std::optional<Address> numeric(const std::string& host) {
    try {
        return parse_network(host == "localhost" ? "127.0.0.1" : host).address;
    } catch (const tools::Failure&) {
        return std::nullopt;
    }
}

// True if the input receives what is sent there, as far as the texts tell.
bool receives(const Url& input, const Endpoint& endpoint) {
    const bool is_datagrams = input.scheme == Scheme::udp || input.scheme == Scheme::rtp;
    if (!is_datagrams || input.endpoint.port != endpoint.port) {
        return false;
    }
    const auto own = numeric(input.endpoint.host);
    const auto other = numeric(endpoint.host);
    if (!own || !other) {
        return input.endpoint.host == endpoint.host;
    }
    const bool is_any = *own == *numeric("0.0.0.0") || *own == *numeric("::");
    const bool is_loopback =
        parse_network("127.0.0.0/8").contains(*other) || *other == *numeric("::1");
    return *own == *other || (is_any && is_loopback);
}

// What is wrong if the channel sends to the address where it receives.
std::optional<std::string> loop_of(const ChannelOptions& channel) {
    for (const std::string& text : channel.send_urls) {
        const Target target = parse_target(text);
        const bool is_same_way = target.interface == channel.interface && target.localaddr.empty();
        for (const std::string& input : input_urls(channel)) {
            if (is_same_way && receives(parse_url(input), target.endpoint)) {
                return "'" + text + "' is an input of the channel '" + channel.name + "'";
            }
        }
    }
    return std::nullopt;
}

// Reads the command line and the file into a Config.
struct Reader {
    // `again`: the file is read while zxrelay runs, so it must not be a pipe, for which it would
    // wait.
    explicit Reader(const fs::path& folder, bool again = false);
    Config finish();

    CLI::App app{"Relays an MPEG transport stream to any number of clients.", "zxrelay"};
    Config config;

private:
    void read_file(const fs::path& path);
    void add_channel(const Table& table);
    void set_on_demand(const std::vector<Table>& tables);
    void refuse_own_channel() const;
    void note_fixed();

    const fs::path folder_;
    const bool again_;
    std::string path_;
    std::optional<Table> file_;
};

Reader::Reader(const fs::path& folder, bool again) : folder_(folder), again_(again) {
    define(app, config.options);
    app.add_option("--config", path_, "Read options and channels from a TOML file")
        ->option_text("FILE")
        ->configurable(false)
        ->each([this](const std::string& path) { read_file(folder_ / path); });
}

// The command line is read by now, but not checked yet.
void Reader::read_file(const fs::path& path) {
    config.file = path;
    if (again_ && fs::exists(path) && !fs::is_regular_file(path)) {
        throw tools::Failure(config.file + " is no longer a regular file");
    }
    file_ = Table::read(path);
    file_->set(app, {kChannel, kOnDemand});
}

// Called when all options are read.
Config Reader::finish() {
    Options& options = config.options;
    if (!options.log_file.empty()) {
        options.log_file = folder_ / options.log_file;
    }
    options.print_stats = !options.daemon && (options.print_stats || isatty(STDOUT_FILENO) == 1);
    if (file_) {
        for (const Table& table : file_->tables(kChannel)) {
            add_channel(table);
        }
        set_on_demand(file_->tables(kOnDemand));
    }
    note_fixed();
    if (!config.channels.empty()) {
        refuse_own_channel();
    } else if (!options.channel.input_url.empty()) {
        if (const auto loop = loop_of(options.channel)) {
            throw tools::Failure("--send " + *loop);
        }
        config.channels.push_back(options.channel);
    } else if (config.on_demand.networks.empty()) {
        throw tools::Failure("--input is required");
    }
    return config;
}

void Reader::add_channel(const Table& table) {
    ChannelOptions channel = config.options.channel;
    CLI::App keys;
    define_channel(keys, channel, "--outputs");
    table.set(keys);
    for (const char* const key : {"name", "input"}) {
        if (!table.has(key)) {
            table.refuse(key, std::string("a channel needs a key '") + key + "'");
        }
    }
    if (std::ranges::any_of(config.channels,
                            [&](const auto& other) { return other.name == channel.name; })) {
        table.refuse("name", "there are two channels '" + channel.name + "'");
    }
    if (const auto loop = loop_of(channel)) {
        table.refuse("outputs", "outputs: " + *loop);
    }
    const auto reads_input = [](const ChannelOptions& one) {
        return one.input_url == "-" || std::ranges::count(one.backup_urls, "-") != 0;
    };
    if (reads_input(channel) && std::ranges::any_of(config.channels, reads_input)) {
        table.refuse("input", "two channels cannot both read the standard input");
    }
    config.channels.push_back(std::move(channel));
}

void Reader::set_on_demand(const std::vector<Table>& tables) {
    if (tables.empty()) {
        return;
    }
    if (tables.size() > 1) {
        tables[1].refuse("", "there are two tables [on-demand]");
    }
    const Table& table = tables.front();
    OnDemandOptions& options = config.on_demand;
    CLI::App keys;
    options.interface = config.options.channel.interface;
    define_on_demand(keys, options);
    table.set(keys);
    try {
        require_interface(options.interface);
    } catch (const tools::Failure& failure) {
        table.refuse("interface", failure.what());
    }
    if (config.options.channel.once && !options.networks.empty()) {
        throw tools::Failure("--once does not go with [on-demand], which never ends");
    }
}

// Notes the options that do not change while zxrelay runs: all but those of channels. A channel
// whose options have changed is opened again.
void Reader::note_fixed() {
    CLI::App own;
    ChannelOptions channel;
    define_channel(own, channel, "--send");
    own.add_flag("--once,--config");
    for (const CLI::Option* const option : app.get_options()) {
        const std::string name = option->get_name();
        if (option->count() != 0 && own.get_option_no_throw(name) == nullptr) {
            config.fixed[name] = CLI::detail::join(option->results());
        }
    }
}

// Refuses the options that describe a channel, because the file has the channels.
void Reader::refuse_own_channel() const {
    for (const char* const option : {"--input", "--backup", "--send", "--name"}) {
        if (app.count(option) != 0) {
            throw tools::Failure(std::string(option) + " does not go with the channels of " +
                                 config.file);
        }
    }
}

}  // namespace

std::vector<std::string> changed_options(const std::map<std::string, std::string>& before,
                                         const std::map<std::string, std::string>& now) {
    std::vector<std::pair<std::string, std::string>> differ;
    std::ranges::set_symmetric_difference(before, now, std::back_inserter(differ));
    std::vector<std::string> names;
    std::ranges::transform(differ, std::back_inserter(names),
                           [](const auto& option) { return option.first; });
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

CommandLine::CommandLine(int argc, char** argv)
    : arguments_(argv + 1, argv + argc), folder_(fs::current_path()) {}

Config CommandLine::read_or_exit() const {
    Reader reader(folder_);
    try {
        tools::parse(reader.app, arguments_);
        return reader.finish();
    } catch (const tools::Failure& failure) {
        tools::exit_misused(reader.app, failure.what());
    }
}

Config CommandLine::read() const {
    Reader reader(folder_, true);
    try {
        reader.app.parse(std::vector<std::string>(arguments_.rbegin(), arguments_.rend()));
    } catch (const CLI::Error& error) {
        throw tools::Failure(error.what());
    }
    return reader.finish();
}

}  // namespace relay
