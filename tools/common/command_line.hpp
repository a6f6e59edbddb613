// The command line, as every program of the project takes it.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tools {

// Help and version as all programs have them.
inline void define_common(CLI::App& app, const std::string& version) {
    app.set_version_flag("--version", app.get_name() + " " + version);
    app.set_help_flag("-h,--help", "Print this help and exit");
}

// Ends the program with a sentence about its command line.
[[noreturn]] inline void end_misused(const CLI::App& app, const std::string& sentence) {
    constexpr int kUsageError = 2;
    std::fprintf(stderr, "%s: %s (try --help)\n", app.get_name().c_str(), sentence.c_str());
    std::exit(kUsageError);
}

// Prints help or version, or a sentence on what is wrong, and ends the program where these are all
// there is to do.
inline void parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked_for_text) {
        std::exit(app.exit(asked_for_text));
    } catch (const CLI::ParseError& error) {
        end_misused(app, error.what());
    }
}

}  // namespace tools
