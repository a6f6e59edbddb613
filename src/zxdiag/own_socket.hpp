// A socket of the diagnosis in a process that may not know of it.
#pragma once

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace zx::diag {

// The program may close this socket, as a daemon does that closes all descriptors, and its number
// may then be that of a file of the program. So the number alone is not trusted.
class OwnSocket {
public:
    // `fd` is owned from now on.
    void set(int fd) {
        fd_ = fd;
        is_known_ = fstat(fd, &its_) == 0;
    }

    // The descriptor; -1: it is closed, or is no longer this socket.
    [[nodiscard]] int get() const {
        struct stat now {};
        if (fd_ < 0 || !is_known_) {
            return fd_;
        }
        const bool is_ours = fstat(fd_, &now) == 0
                                 ? now.st_dev == its_.st_dev && now.st_ino == its_.st_ino
                                 : errno != EBADF;
        return is_ours ? fd_ : -1;
    }

    // The number that it had. poll() may be given it: that changes nothing.
    [[nodiscard]] int number() const { return fd_; }

    void close() {
        if (const int fd = get(); fd >= 0) {
            ::close(fd);
        }
        fd_ = -1;
    }

private:
    int fd_ = -1;
    bool is_known_ = false;
    struct stat its_ {};
};

}  // namespace zx::diag
