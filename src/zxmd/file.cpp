#include "zxmd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/guard.hpp"
#include "internal/length.hpp"
#include "internal/safe_name.hpp"
#include "internal/whole_file.hpp"
#include "zxmd/file.hpp"
#include "zxmd/messages.hpp"

namespace {

constexpr std::string_view kFileScheme = "file://";
constexpr std::size_t kPathSize = 1024;
constexpr std::size_t kTouchSize = 256;
constexpr mode_t kCreateMode = 0666;  // less the umask

// The flags that fopen() would use for a mode, and close-on-exec. -1 for anything that is no mode.
int open_flags(const char* mode) {
    const bool both = std::strchr(mode, '+') != nullptr;
    const int flags = O_CLOEXEC | (std::strchr(mode, 'x') != nullptr ? O_EXCL : 0);
    const int writes = flags | O_CREAT | (both ? O_RDWR : O_WRONLY);
    switch (*mode) {
        case 'r':
            return flags | (both ? O_RDWR : O_RDONLY);
        case 'w':
            return writes | O_TRUNC;
        case 'a':
            return writes | O_APPEND;
        default:
            return -1;
    }
}

zx::UniqueFd open_file(zx::CancelHeld& held, const char* path, const char* mode) {
    const int flags = open_flags(mode);
    const auto try_open = [=] {
        int fd = -1;
        do {
            fd = open(path, flags, kCreateMode);
        } while (fd < 0 && errno == EINTR);
        return fd;
    };
    if (flags < 0) {
        return zx::UniqueFd(-1);
    }
    // Opening waits only for a FIFO, until its other end is opened.
    struct stat status {};
    const bool may_wait = stat(path, &status) == 0 && S_ISFIFO(status.st_mode);
    return zx::UniqueFd(may_wait ? held.wait(try_open, [] {}) : try_open());
}

// Creates the file, so that the next call finds it.
void touch(const char* path) {
    char command[kTouchSize];
    const int length = std::snprintf(command, sizeof command, "touch %s ", path);
    if (zx::is_safe_path(path) && zx::is_whole(length, sizeof command)) {
        zx::run_unasked(command);
    }
}

}  // namespace

bool zx::md::has_target(const char* path, const void* buf, Caller caller) {
    return are_given({{path, "filename", kParamError3}, {buf, "buf", kParamError3}}, kTag, caller);
}

extern "C" int32_t zxmd_api_read(const char* path, void* buf, uint32_t len) {
    if (!zx::md::has_target(path, buf)) {
        return -1;
    }
    zx::CancelHeld held;
    return zx::read_once(held, path, open_file(held, path, "r"), buf, len);
}

extern "C" int32_t zxmd_api_read2(const char* path, void* buf, uint32_t len) {
    return zx::md::has_target(path, buf) ? zxmd_api_read(path, buf, len) : -1;
}

extern "C" int32_t zxmd_api_read3(const char* path, void* buf, uint32_t len) {
    if (!zx::md::has_target(path, buf)) {
        return -1;
    }
    const std::uint32_t size = zx::limited(len, "Read", kTag);
    zx::CancelHeld held;
    zx::UniqueFd file = open_file(held, path, "r");
    if (file.get() < 0) {
        ZX_LOG(error, "Open (%s) failed", path);
        return -1;
    }
    // Continues after an end of file, because a FIFO or a terminal may give more then.
    const auto read_on = [&](std::size_t total) {
        return static_cast<ssize_t>(
            zx::read_whole(file.get(), static_cast<char*>(buf) + total, size - total));
    };
    return static_cast<int32_t>(
        held.wait([&] { return zx::move_whole(size, read_on); }, [&] { file.reset(); }));
}

extern "C" int32_t zxmd_api_write(const char* path, void* buf, uint32_t len, const char* mode) {
    if (path == nullptr || buf == nullptr) {
        ZX_LOG(error, "dbuf is null");
        return -1;
    }
    if (mode == nullptr || mode[0] == '\0') {
        ZX_LOG_PARAM("mode");
        return -1;
    }
    const std::uint32_t size = zx::limited(len, "Write", kTag);
    zx::CancelHeld held;
    zx::UniqueFd file = open_file(held, path, mode);
    if (file.get() < 0) {
        touch(path);
        ZX_LOG(error, "Open (%s) failed", path);
        return -1;
    }
    const auto write_on = [&](std::size_t total) {
        return write(file.get(), static_cast<const char*>(buf) + total, size - total);
    };
    const std::size_t count =
        held.wait([&] { return zx::move_whole(size, write_on); }, [&] { file.reset(); });
    if (count < size) {
        static_cast<char*>(buf)[count] = '\0';
    }
    return static_cast<int32_t>(count);
}

extern "C" int32_t zxmd_api_writea(const char* path, void* buf, uint32_t len) {
    return zxmd_api_write(path, buf, len, "a+");
}

extern "C" uint64_t zxmd_api_getFileSize(const char* path) {
    if (!ZX_ARE_GIVEN({path, "path"})) {
        return 0;
    }
    char cut[kPathSize + 1];
    const char* name = path;
    if (std::string_view(path).starts_with(kFileScheme)) {
        name += kFileScheme.size();
    } else if (const std::size_t needed = std::strlen(path) + 1; needed > kPathSize) {
        ZX_LOG_CUT(kPathSize, needed, path);
        std::memcpy(cut, path, kPathSize);
        cut[kPathSize] = '\0';
        name = cut;
    }
    struct stat status {};
    if (stat(name, &status) != 0) {
        ZX_LOG(error, "stat %s failed(%d,%s)", name, errno, std::strerror(errno));
        return 0;
    }
    return static_cast<uint64_t>(status.st_size);
}

extern "C" const char* zxmd_api_getFileType(const char* path) {
    if (!ZX_ARE_GIVEN({path, "path"})) {
        return "error";
    }
    struct stat status {};
    if (lstat(path, &status) != 0) {
        ZX_LOG(error, "lstat %s error", path);
        return "error";
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return "regular";
        case S_IFDIR:
            return "diretory";
        case S_IFBLK:
            return "block special";
        case S_IFCHR:
            return "character special";
        case S_IFIFO:
            return "fifo";
        case S_IFLNK:
            return "symbolic link";
        case S_IFSOCK:
            return "socket";
        default:
            return "unknown";
    }
}

extern "C" int32_t zxmd_api_isFileExsit(const char* path) {
    if (!ZX_ARE_GIVEN({path, "path"})) {
        return 0;
    }
    return access(path, F_OK) == 0 ? 1 : 0;
}

extern "C" int32_t zxmd_api_fileFormatFilter(const char* name) {
    if (!ZX_ARE_GIVEN({name, "name"})) {
        return 0;
    }
    const std::string_view text(name);
    return text.ends_with(".ts") || text.ends_with(".mp3") || text.ends_with(".mp4") ? 1 : 0;
}
