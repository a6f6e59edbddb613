#include "sink.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "ownership.hpp"
#include "shared/line_writer.hpp"
#include "shared/write_once.hpp"
#include "zxlog.h"

namespace zxlog {
namespace {

constexpr int kNone = -1;

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId&) const = default;
};

std::atomic<int> g_fd{kNone};                // our descriptor; the number stays while it is ours
std::atomic<std::int64_t> g_checked_sec{0};  // when the path was last checked

using Path = char[4096];

// Only the holder changes these. The two paths alternate, so that a child that was forked during a
// change finds a complete one.
Ownership::Holder g_holder{0};
Path g_paths[2];  // empty: standard error
std::atomic<unsigned> g_path_turn{0};
FileId g_id;                            // the file that g_fd is open for
std::atomic<bool> g_may_be_pipe{true};  // or a socket
constinit zx::LineWriter g_writer{zxlog_innerapi_logTime, &strLoglevel_simple[2]};

const char* current_path() {
    return g_paths[g_path_turn.load(std::memory_order_relaxed) % 2];
}

FileId id_of(const struct stat& st) {
    return {st.st_dev, st.st_ino};
}

// A descriptor that only gives errors, such as one for a file whose server is gone, is still open.
// Opening another one would leak it.
bool still_ours(int fd) {
    struct stat st;
    if (fd == kNone) {
        return false;
    }
    return fstat(fd, &st) == 0 ? id_of(st) == g_id : errno != EBADF;
}

// A copy of `fd` with a high number: away from the program's own descriptors, from select(), and
// from code that closes the first few.
int high_copy(int fd) {
    for (const int from : {1000, 200, 3}) {
        const int copy = fcntl(fd, F_DUPFD_CLOEXEC, from);
        if (copy >= 0) {
            return copy;
        }
    }
    return kNone;
}

// O_NONBLOCK: a pipe that nobody empties loses lines but does not block the program.
int open_log(const char* path) {
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644);
}

// Makes our descriptor refer to the file that `fd` is open for. The number stays when it is still
// ours, so a line that is just being written goes to the old file or to the new one, and nowhere
// else.
bool adopt(int fd) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return false;
    }
    g_may_be_pipe.store(true, std::memory_order_relaxed);  // until the check below
    const int ours = g_fd.load(std::memory_order_relaxed);
    if (still_ours(ours)) {
        if (dup3(fd, ours, O_CLOEXEC) < 0) {
            return false;
        }
    } else {
        const int copy = high_copy(fd);
        if (copy == kNone) {
            return false;
        }
        g_fd.store(copy, std::memory_order_release);
    }
    if (!(id_of(st) == g_id)) {
        g_writer.begin_file();
    }
    g_id = id_of(st);
    g_may_be_pipe.store(S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode), std::memory_order_relaxed);
    return true;
}

bool adopt_path(const char* path) {
    const int fd = open_log(path);
    if (fd < 0) {
        return false;
    }
    const bool adopted = adopt(fd);
    const int code = errno;
    close(fd);
    errno = code;
    return adopted;
}

// True when descriptor 2 still is what the log began with, or when the log begins now. Otherwise
// the program may have opened another file with this number.
bool standard_error_is_ours() {
    struct stat st;
    return g_fd.load(std::memory_order_relaxed) == kNone ||
           (fstat(STDERR_FILENO, &st) == 0 && id_of(st) == g_id);
}

// Makes sure that our descriptor is open, is ours, and is open for the file that the path names.
void look_after_descriptor() {
    const Ownership ownership(g_holder);
    if (!ownership.held()) {
        return;
    }
    const char* const path = current_path();
    const bool ours = still_ours(g_fd.load(std::memory_order_relaxed));
    if (path[0] == '\0') {
        if (!ours && standard_error_is_ours()) {
            adopt(STDERR_FILENO);
        }
        return;
    }
    struct stat st;
    if (!ours || stat(path, &st) != 0 || id_of(st) != g_id) {
        adopt_path(path);  // when this fails, lines still go to the old file
    }
}

std::int64_t coarse_sec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

// Opens our descriptor again when somebody has closed it.
long write_part(const char* text, std::size_t size) {
    const auto write_now = [&] {
        const int ours = g_fd.load(std::memory_order_acquire);
        return zx::write_once(ours != kNone ? ours : STDERR_FILENO, text, size,
                              g_may_be_pipe.load(std::memory_order_relaxed));
    };
    const long written = write_now();
    if (written >= 0 || errno != EBADF) {
        return written;
    }
    look_after_descriptor();
    return write_now();
}

}  // namespace

void take_descriptor() {
    if (g_fd.load(std::memory_order_relaxed) == kNone) {
        look_after_descriptor();
    }
}

void write_line(const char* line, std::size_t size) {
    const std::int64_t now = coarse_sec();
    if (g_checked_sec.load(std::memory_order_relaxed) != now) {
        g_checked_sec.store(now, std::memory_order_relaxed);
        look_after_descriptor();
    }
    g_writer.write(line, size, write_part);
}

}  // namespace zxlog

namespace {

using zxlog::Path;

// Writes `path` as an absolute path to `out`.
bool make_absolute(const char* path, Path& out) {
    int needed;
    if (path[0] == '/') {
        needed = std::snprintf(out, sizeof out, "%s", path);
    } else {
        Path current;
        if (getcwd(current, sizeof current) == nullptr) {
            return false;
        }
        needed = std::snprintf(out, sizeof out, "%s/%s", current, path);
    }
    if (needed < 0 || static_cast<std::size_t>(needed) >= sizeof out) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

}  // namespace

extern "C" std::int32_t zxlog_api_setFile(const char* path) {
    Path absolute = "";
    if (path != nullptr && !make_absolute(path, absolute)) {
        return -1;
    }
    for (;;) {
        const zxlog::Ownership ownership(zxlog::g_holder);
        if (!ownership.held()) {
            sched_yield();
            continue;
        }
        if (!(path != nullptr ? zxlog::adopt_path(absolute) : zxlog::adopt(STDERR_FILENO))) {
            return -1;
        }
        const unsigned turn = zxlog::g_path_turn.load(std::memory_order_relaxed) + 1;
        std::memcpy(zxlog::g_paths[turn % 2], absolute, sizeof absolute);
        // In a child that is forked now, the path must be complete if the turn is the new one.
        zxlog::g_path_turn.store(turn, std::memory_order_release);
        return 0;
    }
}
