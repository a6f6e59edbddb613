#include "server/journal.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "common/failure.hpp"
#include "zxcommon.hpp"
#include "zxlog.h"

namespace relay {
namespace {

constexpr std::size_t kTimeSize = sizeof "[yyyy-mm-dd hh:mm:ss.mmm][" - 1;
constexpr std::size_t kLongestLine = 65536;  // a longer one is passed on in parts

// Systemd names the device and the inode of the journal's stream.
bool is_journal(int fd) {
    const char* const named = std::getenv("JOURNAL_STREAM");
    struct stat st {};
    return named != nullptr && fstat(fd, &st) == 0 &&
           named == std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino);
}

// Errors have the level 1 in the log and the priority 3 in the journal, and so on.
std::string priority_of(std::string_view line) {
    if (line.size() < kTimeSize) {
        return {};
    }
    line.remove_prefix(kTimeSize);
    for (std::size_t level = 1; level < std::size(strLoglevel_simple); ++level) {
        const std::string_view name = strLoglevel_simple[level];
        if (line.starts_with(name) && line.substr(name.size()).starts_with("][")) {
            return {'<', static_cast<char>('0' + level + 2), '>'};
        }
    }
    return {};
}

void write_all(std::string_view text) {
    while (!text.empty()) {
        const ssize_t size = write(STDERR_FILENO, text.data(), text.size());
        if (size > 0) {
            text.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            return;
        }
    }
}

// Writes the whole lines of `text` with their priorities, and removes them from it.
void pass_on(std::string& text) {
    std::size_t end;
    std::string lines;
    while ((end = text.find('\n')) != std::string::npos || text.size() >= kLongestLine) {
        const std::string line = text.substr(0, end == std::string::npos ? end : end + 1);
        lines += priority_of(line) + line;
        text.erase(0, line.size());
    }
    write_all(lines);
}

// The body of the process. It has nothing of the relay but its own input and the journal.
[[noreturn]] void work(int input) {
    dup2(input, STDIN_FILENO);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    close(STDOUT_FILENO);
    std::string text;
    char chunk[4096];
    ssize_t size;
    while ((size = read(STDIN_FILENO, chunk, sizeof chunk)) > 0 || (size < 0 && errno == EINTR)) {
        text.append(chunk, size > 0 ? static_cast<std::size_t>(size) : 0);
        pass_on(text);
    }
    write_all(text);
    _exit(EXIT_SUCCESS);
}

}  // namespace

void give_lines_priorities() {
    int ends[2];
    if (!is_journal(STDERR_FILENO) || pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const zxcommon::Descriptor out(ends[0]);
    const zxcommon::Descriptor in(ends[1]);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (fork() == 0) {
            work(out.get());
        }
        _exit(EXIT_SUCCESS);
    }
    if (child < 0 || waitpid(child, nullptr, 0) != child || dup2(in.get(), STDERR_FILENO) < 0) {
        throw tools::system_failure("cannot write to the journal");
    }
    zxlog_api_setFile(nullptr);
}

}  // namespace relay
