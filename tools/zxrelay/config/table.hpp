// A configuration file in TOML, whose keys are options.
#pragma once

#include <toml++/toml.h>
#include <CLI/CLI.hpp>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace relay {

// A table of the file. A Failure about what it contains begins with the file and the line.
class Table {
public:
    // Reads the whole file: the table of its top level. Throws a Failure.
    static Table read(const std::string& path);

    // Sets the options of `app` that the keys name, except those that it has already: the command
    // line overrides the file. Skips the keys in `others`.
    void set(CLI::App& app, const std::set<std::string_view>& others = {}) const;

    // The tables "[[name]]", or one "[name]".
    [[nodiscard]] std::vector<Table> tables(const std::string& name) const;

    [[nodiscard]] bool has(const std::string& key) const;

    // Throws a Failure about a key, or about the table if the key is missing.
    [[noreturn]] void refuse(const std::string& key, const std::string& why) const;

private:
    Table(std::shared_ptr<const toml::table> file, const toml::table& table)
        : file_(std::move(file)), table_(&table) {}

    std::shared_ptr<const toml::table> file_;
    const toml::table* table_;  // a part of the file
};

}  // namespace relay
