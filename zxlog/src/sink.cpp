#include "sink.hpp"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "line_buffer.hpp"
#include "zone.hpp"
#include "zxlog.h"

namespace zxlog {
namespace {

constexpr int kNone = -1;

struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId&) const = default;
};

std::atomic<int> g_fd{kNone};  // our own descriptor; its number stays while it is ours
std::atomic<std::int64_t> g_checked_sec{0};  // when the path was last looked at

// Owned by the holder of an Ownership.
char g_path[4096];  // empty: standard error
FileId g_id;        // the file behind g_fd

// The right to change where the lines go. It is only ever tried for on the way of a line, and it
// names its process: a child that was forked while a thread of the parent held it takes it over.
class Ownership {
public:
    Ownership() {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
        const pid_t self = getpid();
        pid_t seen = 0;
        while (!held_ && seen != self) {
            held_ = holder_.compare_exchange_strong(seen, self, std::memory_order_acquire);
        }
    }
    ~Ownership() {
        if (held_) {
            holder_.store(0, std::memory_order_release);
        }
        pthread_setcancelstate(cancel_state_, nullptr);
    }
    Ownership(const Ownership&) = delete;
    Ownership& operator=(const Ownership&) = delete;

    [[nodiscard]] bool held() const { return held_; }

private:
    static inline std::atomic<pid_t> holder_{0};
    bool held_ = false;
    int cancel_state_ = 0;
};

bool id_of(int fd, FileId& id) {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return false;
    }
    id = {st.st_dev, st.st_ino};
    return true;
}

bool still_ours(int fd) {
    FileId id;
    return fd != kNone && id_of(fd, id) && id == g_id;
}

// A copy of `fd` out of the way of the program's own descriptors, of select() and of whoever closes
// the first few.
int high_copy(int fd) {
    for (const int from : {1000, 200, 3}) {
        const int copy = fcntl(fd, F_DUPFD_CLOEXEC, from);
        if (copy >= 0) {
            return copy;
        }
    }
    return kNone;
}

int open_log(const char* path) {
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
}

// Makes our descriptor one for the file behind `fd`. The number stays when it still is ours, so
// that a line that is being written meets the old file or the new one, nothing else.
bool adopt(int fd) {
    FileId id;
    if (!id_of(fd, id)) {
        return false;
    }
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
    g_id = id;
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

// Sees to it that our descriptor is open, is ours, and leads to the file that the path names.
void look_after_descriptor() {
    const Ownership ownership;
    if (!ownership.held()) {
        return;
    }
    if (g_path[0] == '\0') {
        if (!still_ours(g_fd.load(std::memory_order_relaxed))) {
            adopt(STDERR_FILENO);
        }
        return;
    }
    struct stat st;
    const bool named = stat(g_path, &st) == 0 && FileId{st.st_dev, st.st_ino} == g_id;
    if (!named || !still_ours(g_fd.load(std::memory_order_relaxed))) {
        adopt_path(g_path);  // when it fails, the old file goes on taking the lines
    }
}

std::int64_t coarse_sec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

// Lines that could not be written: the process that lost them, and how many. A forked child does
// not report what its parent lost.
std::atomic<std::uint64_t> g_lost{0};
std::atomic<bool> g_torn{false};  // the last thing in the file is a part of a line

constexpr std::uint64_t kCountMask = 0xFFFFFFFFU;

std::uint64_t process_part() {
    return static_cast<std::uint64_t>(getpid()) << 32U;
}

void add_lost(std::uint64_t count) {
    const std::uint64_t self = process_part();
    std::uint64_t seen = g_lost.load(std::memory_order_relaxed);
    std::uint64_t wanted;
    do {
        const std::uint64_t before = (seen & ~kCountMask) == self ? seen & kCountMask : 0;
        wanted = self | ((before + count) & kCountMask);
    } while (!g_lost.compare_exchange_weak(seen, wanted, std::memory_order_relaxed));
}

bool write_whole(const char* text, std::size_t size) {
    const int fd = g_fd.load(std::memory_order_acquire);
    const long written = write_once(fd != kNone ? fd : STDERR_FILENO, text, size);
    if (written >= 0 && static_cast<std::size_t>(written) == size) {
        return true;
    }
    if (written > 0) {
        g_torn.store(true, std::memory_order_relaxed);
    } else if (written < 0 && errno == EBADF) {
        g_checked_sec.store(0, std::memory_order_relaxed);  // look after it with the next line
    }
    return false;
}

// True when nothing was lost before, or when that could be reported now.
bool report_lost() {
    const std::uint64_t taken = g_lost.exchange(0, std::memory_order_relaxed);
    if (taken == 0 || (taken & ~kCountMask) != process_part()) {
        return true;
    }
    const std::uint64_t count = taken & kCountMask;
    char line[128];
    const int size = std::snprintf(
        line, sizeof line, "%s%s[%s][ZXLOG]%llu lines could not be written\r\n",
        g_torn.load(std::memory_order_relaxed) ? "\r\n" : "", zxlog_innerapi_logTime(),
        strLoglevel_simple[2], static_cast<unsigned long long>(count));
    if (!write_whole(line, static_cast<std::size_t>(size))) {
        add_lost(count);
        return false;
    }
    g_torn.store(false, std::memory_order_relaxed);
    return true;
}

}  // namespace

void write_line(const char* line, std::size_t size) {
    const std::int64_t now = coarse_sec();
    if (g_checked_sec.load(std::memory_order_relaxed) != now) {
        g_checked_sec.store(now, std::memory_order_relaxed);
        look_after_descriptor();
    }
    if (g_lost.load(std::memory_order_relaxed) != 0 && !report_lost()) {
        add_lost(1);
        return;
    }
    if (!write_whole(line, size)) {
        add_lost(1);
    }
}

}  // namespace zxlog

namespace {

using zxlog::adopt;
using zxlog::adopt_path;
using zxlog::g_path;

// `path` from the root, in `out`.
bool make_absolute(const char* path, char (&out)[sizeof g_path]) {
    int needed;
    if (path[0] == '/') {
        needed = std::snprintf(out, sizeof out, "%s", path);
    } else {
        char current[sizeof g_path];
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
    zxlog::learn_zone();
    char absolute[sizeof g_path] = "";
    if (path != nullptr && !make_absolute(path, absolute)) {
        return -1;
    }
    for (;;) {
        const zxlog::Ownership ownership;
        if (!ownership.held()) {
            sched_yield();
            continue;
        }
        if (!(path != nullptr ? adopt_path(absolute) : adopt(STDERR_FILENO))) {
            return -1;
        }
        std::memcpy(g_path, absolute, sizeof g_path);
        return 0;
    }
}
