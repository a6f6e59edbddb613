// What may go into a shell command or a path: names that cannot lead elsewhere, and commands that
// were not cut.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <string_view>

#include "zxdiag/trace.hpp"

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

// Characters that a shell treats specially, and control characters, which end words or mean
// something to some shell.
[[nodiscard]] constexpr bool is_shell_byte(char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == 0x7F ||
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

// A part of a word in a command that the shell takes literally.
[[nodiscard]] constexpr bool is_literal(std::string_view name) {
    return !name.empty() && std::none_of(name.begin(), name.end(), safe_name::is_shell_byte);
}

// A name that an interface of the kernel may have and that is safe in a path.
[[nodiscard]] constexpr bool is_interface(std::string_view name) {
    constexpr std::size_t kMaxSize = 15;
    return !name.empty() && name.size() <= kMaxSize && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos;
}

// Tells from the result of snprintf() whether a whole command fitted into `size` bytes.
[[nodiscard]] constexpr bool is_whole(int length, std::size_t size) {
    return length >= 0 && static_cast<std::size_t>(length) < size;
}

// Runs a command, and returns what std::system() returns.
inline int run(const char* command) {
    const diag::TracedWait traced(diag::Span::command, command);
    return std::system(command);
}

// Runs a command without looking at its result: a failure shows elsewhere or not at all.
inline void run_unasked(const char* command) {
    [[maybe_unused]] const int status = run(command);
}

}  // namespace zx
