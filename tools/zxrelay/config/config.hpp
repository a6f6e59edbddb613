// The configuration: the command line and the file that it names.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "options.hpp"

namespace relay {

struct Config {
    Options options;
    std::vector<ChannelOptions> channels;  // their names differ
    OnDemandOptions on_demand;
    std::string file;                          // empty: none
    std::map<std::string, std::string> fixed;  // the options that do not change while zxrelay runs

    bool operator==(const Config&) const = default;
};

// The names of the options that differ.
std::vector<std::string> changed_options(const std::map<std::string, std::string>& before,
                                         const std::map<std::string, std::string>& now);

class CommandLine {
public:
    CommandLine(int argc, char** argv);

    // Ends the program after --help and --version, and after an error message when the command line
    // or the file is wrong.
    [[nodiscard]] Config read_or_exit() const;

    // Reads the file again. Throws a Failure if it is wrong now.
    [[nodiscard]] Config read() const;

private:
    std::vector<std::string> arguments_;  // without the name of the program
    // The working directory at the start. Paths are relative to it, even in a daemon, which changes
    // its directory.
    std::filesystem::path folder_;
};

}  // namespace relay
