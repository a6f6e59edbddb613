// What all programs of the project do with their command lines.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace tools {

// Defines --help and --version.
inline void define_common(CLI::App& app, const std::string& version) {
    app.set_version_flag("--version", app.get_name() + " " + version, "Print the version and exit");
    app.set_help_flag("-h,--help", "Print the options and exit");
}

// Ends the program with an error message about its command line.
[[noreturn]] inline void exit_misused(const CLI::App& app, const std::string& sentence) {
    constexpr int kUsageError = 2;
    std::fprintf(stderr, "%s: %s (try --help)\n", app.get_name().c_str(), sentence.c_str());
    std::exit(kUsageError);
}

// What is wrong with the command line. The parser complains about a missing option before it does
// so about an unknown one, which may well be the missing one, misspelt.
[[nodiscard]] inline std::string sentence_of(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<std::string> unknown = app.remaining();
    const std::string sentence = error.what();
    return unknown.empty() ? sentence : "'" + unknown.front() + "' is not an option";
}

// Parses the command line, without the name of the program. Ends the program after --help and
// --version, and after an error message when the command line is wrong.
inline void parse(CLI::App& app, const std::vector<std::string>& arguments) {
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::Success& help_or_version) {
        std::exit(app.exit(help_or_version));
    } catch (const CLI::ParseError& error) {
        exit_misused(app, sentence_of(app, error));
    }
}

}  // namespace tools
