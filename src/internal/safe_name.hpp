// What may go into a shell command or a path: names that lead nowhere else, commands that were not
// cut.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace zx {

namespace safe_name {

[[nodiscard]] constexpr bool is_host_byte(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view(".:_%-").find(c) != std::string_view::npos;
}

[[nodiscard]] constexpr bool is_path_byte(char c) {
    return is_host_byte(c) || static_cast<unsigned char>(c) >= 0x80 ||
           std::string_view("/+,=@~^").find(c) != std::string_view::npos;
}

// Control characters, which end words or mean something to some shell, and what all shells read.
[[nodiscard]] constexpr bool is_shell_byte(char c) {
    return (c >= 0 && c <= ' ') || c == 0x7F ||
           std::string_view("|&;<>()$`\\\"'*?[{").find(c) != std::string_view::npos;
}

}  // namespace safe_name

// Hosts, addresses, packages.
[[nodiscard]] constexpr bool is_safe_host(std::string_view name) {
    return !name.empty() && name.front() != '-' &&
           std::all_of(name.begin(), name.end(), safe_name::is_host_byte);
}

// A leading '~' would become somebody's home directory.
[[nodiscard]] constexpr bool is_safe_path(std::string_view name) {
    return !name.empty() && name.front() != '-' && name.front() != '~' &&
           std::all_of(name.begin(), name.end(), safe_name::is_path_byte);
}

// What stands in the middle of a word of a command, and is taken by the shell as it stands.
[[nodiscard]] constexpr bool is_literal(std::string_view name) {
    return !name.empty() && std::none_of(name.begin(), name.end(), safe_name::is_shell_byte);
}

// What the kernel may have as the name of an interface, as far as a path is concerned.
[[nodiscard]] constexpr bool is_interface(std::string_view name) {
    constexpr std::size_t kMaxSize = 15;
    return !name.empty() && name.size() <= kMaxSize && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos;
}

// Tells by the result of snprintf whether all of a command fitted `size` bytes.
[[nodiscard]] constexpr bool is_whole(int length, std::size_t size) {
    return length >= 0 && static_cast<std::size_t>(length) < size;
}

// Runs a command whose failure shows elsewhere, or nowhere.
inline void run_unasked(const char* command) {
    [[maybe_unused]] const int status = std::system(command);
}

}  // namespace zx
