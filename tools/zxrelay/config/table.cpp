#include "config/table.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/failure.hpp"

namespace relay {
namespace {

using tools::Failure;

// The sentence stays one line, whatever the keys and values are.
[[noreturn]] void fail(const toml::source_region& place, std::string sentence) {
    std::ranges::replace_if(
        sentence, [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, ' ');
    const std::string path = place.path ? *place.path : "";
    throw Failure(path + ":" + std::to_string(place.begin.line) + ": " + sentence);
}

// The kind of value that an option takes.
bool is_text(const CLI::Option& option) {
    return option.get_type_name().starts_with("TEXT");
}

bool is_size(const CLI::Option& option) {
    return option.get_type_name().find("SIZE") != std::string::npos;
}

// The value as it would be written on the command line.
std::string argument(const toml::node& node, const CLI::Option& option) {
    if (option.get_expected_max() == 0) {
        if (const auto flag = node.value_exact<bool>()) {
            return *flag ? "true" : "false";
        }
        fail(node.source(), option.get_lnames().front() + " must be true or false");
    }
    if (const auto text = node.value_exact<std::string>(); text && !is_text(option)) {
        if (is_size(option)) {
            return *text;
        }
    } else if (text) {
        return *text;
    }
    if (const auto number = node.value_exact<std::int64_t>(); number && !is_text(option)) {
        return std::to_string(*number);
    }
    fail(node.source(), option.get_lnames().front() + " must be " +
                            (is_text(option) ? "a text in quotes"
                                             : (is_size(option) ? "a number or a size in quotes"
                                                                : "a whole number")));
}

std::vector<std::string> arguments(const toml::node& node, const CLI::Option& option) {
    const toml::array* const list = node.as_array();
    if (list == nullptr) {
        return {argument(node, option)};
    }
    if (option.get_items_expected_max() <= 1) {
        fail(node.source(), option.get_lnames().front() + " takes one value");
    }
    std::vector<std::string> all;
    for (const toml::node& each : *list) {
        all.push_back(argument(each, option));
    }
    return all;
}

void set_option(CLI::Option& option, const toml::node& node) {
    const std::vector<std::string> values = arguments(node, option);
    if (!option.empty() || values.empty()) {
        return;
    }
    try {
        option.add_result(values);
        option.run_callback();
    } catch (const CLI::Error& error) {
        const std::string sentence = error.what();
        fail(node.source(), sentence.substr(sentence.starts_with("--") ? 2 : 0));
    }
}

}  // namespace

Table Table::read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || std::filesystem::is_directory(path)) {
        throw tools::system_failure("cannot read " + path);
    }
    try {
        const auto whole = std::make_shared<const toml::table>(toml::parse(text.str(), path));
        return {whole, *whole};
    } catch (const toml::parse_error& error) {
        fail(error.source(), std::string(error.description()));
    }
}

void Table::set(CLI::App& app, const std::set<std::string_view>& others) const {
    for (const auto& [key, node] : *table_) {
        if (others.contains(key.str())) {
            continue;
        }
        const std::string name(key.str());
        CLI::Option* const option = app.get_option_no_throw("--" + name);
        if (option == nullptr || !option->get_configurable()) {
            fail(key.source(), "'" + name + "' is not an option here");
        }
        set_option(*option, node);
    }
}

std::vector<Table> Table::tables(const std::string& name) const {
    std::vector<Table> all;
    const toml::node* const node = table_->get(name);
    if (node == nullptr) {
        return all;
    }
    if (const toml::table* const one = node->as_table()) {
        all.push_back({file_, *one});
        return all;
    }
    const toml::array* const list = node->as_array();
    for (std::size_t i = 0; list != nullptr && i < list->size(); ++i) {
        if (const toml::table* const one = list->get(i)->as_table()) {
            all.push_back({file_, *one});
        }
    }
    if (list == nullptr || all.size() != list->size()) {
        fail(node->source(), "'" + name + "' must be a table");
    }
    return all;
}

bool Table::has(const std::string& key) const {
    return table_->contains(key);
}

void Table::refuse(const std::string& key, const std::string& why) const {
    const toml::node* const node = table_->get(key);
    fail(node != nullptr ? node->source() : table_->source(), why);
}

}  // namespace relay
