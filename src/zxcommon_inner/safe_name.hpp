// What may go into a shell command: names that the shell takes as they stand, commands that were
// not cut.
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

}  // namespace safe_name

// Hosts, addresses, interfaces, packages.
[[nodiscard]] constexpr bool is_safe_host(std::string_view name) {
    return !name.empty() && name.front() != '-' &&
           std::all_of(name.begin(), name.end(), safe_name::is_host_byte);
}

// A leading '~' would become somebody's home directory.
[[nodiscard]] constexpr bool is_safe_path(std::string_view name) {
    return !name.empty() && name.front() != '-' && name.front() != '~' &&
           std::all_of(name.begin(), name.end(), safe_name::is_path_byte);
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
