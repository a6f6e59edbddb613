#include "server/pid_file.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "common/failure.hpp"
#include "zxcommon.hpp"

namespace relay {
namespace {

constexpr off_t kLargestPidFile = 16;

std::string g_path;
int g_fd = -1;        // holds the lock; children inherit it
int g_write_fd = -1;  // for the same file
pid_t g_owner = 0;    // the process that removes the file

// False if another relay has removed the file since it was opened.
bool is_at_path(int fd) {
    struct stat opened;
    struct stat named;
    return fstat(fd, &opened) == 0 && stat(g_path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

[[noreturn]] void fail(const char* what) {
    throw tools::system_failure(std::string(what) + " the pid file " + g_path);
}

zxcommon::Descriptor open_locked() {
    zxcommon::Descriptor fd(
        open(g_path.c_str(), O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644));
    struct stat st {};
    if (fd.get() < 0 || fstat(fd.get(), &st) != 0) {
        fail("cannot write");
    }
    if (!S_ISREG(st.st_mode) || st.st_size > kLargestPidFile) {
        throw tools::Failure(g_path + " is not a pid file");
    }
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw tools::Failure("the pid file " + g_path + " belongs to a running relay");
        }
        fail("cannot lock");
    }
    return fd;
}

// For the same file, whatever its path names now.
int open_for_writing(int fd) {
    const std::string same = "/proc/self/fd/" + std::to_string(fd);
    return open(same.c_str(), O_WRONLY | O_CLOEXEC);
}

}  // namespace

void claim_pid_file(const std::string& path) {
    g_path = std::filesystem::absolute(path);
    do {
        g_fd = fcntl(open_locked().get(), F_DUPFD_CLOEXEC, 0);
        if (g_fd < 0) {
            fail("cannot open");
        }
        if (!is_at_path(g_fd)) {
            close(g_fd);
            g_fd = -1;
        }
    } while (g_fd < 0);
    g_write_fd = open_for_writing(g_fd);
    if (g_write_fd < 0) {
        fail("cannot write");
    }
    g_owner = getpid();
    std::atexit(remove_pid_file);
}

void write_pid_file() {
    if (g_fd < 0) {
        return;
    }
    g_owner = getpid();
    const std::string text = std::to_string(g_owner) + "\n";
    if (ftruncate(g_write_fd, 0) != 0 ||
        pwrite(g_write_fd, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        fail("cannot write");
    }
}

void lock_pid_file_only() {
    if (g_write_fd >= 0) {
        close(g_write_fd);
        g_write_fd = -1;
    }
}

void take_over_pid_file() {
    g_owner = getpid();
}

void give_up_pid_file() {
    g_owner = 0;
}

void remove_pid_file() {
    if (g_fd < 0 || g_owner != getpid() || !is_at_path(g_fd)) {
        return;
    }
    if (unlink(g_path.c_str()) != 0) {
        // The relay's user may have no right to remove it. The supervisor can still empty it, and
        // an empty file names no process. Without a watchdog the file stays as it is, and only the
        // lock that it lacks tells that it is left over.
        [[maybe_unused]] const int result = ftruncate(g_write_fd, 0);
    }
}

}  // namespace relay
