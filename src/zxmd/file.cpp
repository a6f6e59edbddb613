#include "zxmd.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "internal/guard.hpp"
#include "internal/log.hpp"
#include "zxcommon_inner/safe_name.hpp"
#include "zxmd/file.hpp"

namespace {

constexpr char kTag[] = "ZXMD";
constexpr std::string_view kFileScheme = "file://";
constexpr std::size_t kPathSize = 1024;
constexpr std::size_t kTouchSize = 256;
constexpr std::size_t kModeSize = 64;

std::uint32_t lower_read(const char* func, std::uint32_t len) {
    if (len <= zx::md::kMaxLength) {
        return len;
    }
    constexpr int kLimit = zx::md::kMaxLength;
    ZX_LOG_FROM(func, warning, "Read len(%d) is out of range(0~%d),set to %d",
                static_cast<int>(len), kLimit, kLimit);
    return kLimit;
}

zx::UniqueFile open_to_read(const char* path) {
    return zx::UniqueFile(std::fopen(path, "re"));
}

bool has_target(const char* func, const char* path, const void* buf) {
    if (path == nullptr) {
        ZX_LOG_FROM(func, error, "Param error###filename");
        return false;
    }
    if (buf == nullptr) {
        ZX_LOG_FROM(func, error, "Param error###buf");
        return false;
    }
    return true;
}

// Unbuffered, so that what is counted as written did reach the file; close-on-exec, which is asked
// for behind the first letter, as a mode may end in something else than flags.
zx::UniqueFile open_to_write(const char* path, const char* mode) {
    char private_mode[kModeSize];
    const int length = std::snprintf(private_mode, sizeof private_mode, "%.1se%s", mode, mode + 1);
    zx::UniqueFile file(zx::is_whole(length, kModeSize) ? std::fopen(path, private_mode) : nullptr);
    if (file != nullptr) {
        std::setvbuf(file.get(), nullptr, _IONBF, 0);
    }
    return file;
}

// The next call finds the file.
void touch(const char* path) {
    char command[kTouchSize];
    const int length = std::snprintf(command, sizeof command, "touch %s ", path);
    if (zx::is_safe_path(path) && zx::is_whole(length, sizeof command)) {
        zx::run_unasked(command);
    }
}

}  // namespace

std::int32_t zx::md::read_once(const char* func, const char* path, UniqueFile file, void* buf,
                               std::uint32_t len) {
    const std::uint32_t size = lower_read(func, len);
    if (file == nullptr) {
        ZX_LOG_FROM(func, error, "Open (%s) failed", path);
        return -1;
    }
    const std::size_t count = std::fread(buf, 1, size, file.get());
    if (count < size) {
        static_cast<char*>(buf)[count] = '\0';
    }
    return static_cast<std::int32_t>(count);
}

extern "C" int32_t zxmd_api_read(const char* path, void* buf, uint32_t len) {
    if (!has_target(__func__, path, buf)) {
        return -1;
    }
    return zx::md::read_once(__func__, path, open_to_read(path), buf, len);
}

extern "C" int32_t zxmd_api_read2(const char* path, void* buf, uint32_t len) {
    return has_target(__func__, path, buf) ? zxmd_api_read(path, buf, len) : -1;
}

extern "C" int32_t zxmd_api_read3(const char* path, void* buf, uint32_t len) {
    if (!has_target(__func__, path, buf)) {
        return -1;
    }
    const std::uint32_t size = lower_read(__func__, len);
    const zx::UniqueFile file = open_to_read(path);
    if (file == nullptr) {
        ZX_LOG(error, "Open (%s) failed", path);
        return -1;
    }
    std::size_t total = 0;
    while (total < size) {
        const std::size_t count =
            std::fread(static_cast<char*>(buf) + total, 1, size - total, file.get());
        if (count == 0) {
            break;
        }
        total += count;
    }
    return static_cast<int32_t>(total);
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
    std::uint32_t size = len;
    if (len > zx::md::kMaxLength) {
        size = zx::md::kMaxLength;
        ZX_LOG(warning, "Write len(%d) is out of range(0~%d),set to %d", static_cast<int>(len),
               static_cast<int>(size), static_cast<int>(size));
    }
    const zx::UniqueFile file = open_to_write(path, mode);
    if (file == nullptr) {
        touch(path);
        ZX_LOG(error, "Open (%s) failed", path);
        return -1;
    }
    const std::size_t count = std::fwrite(buf, 1, size, file.get());
    if (count < size) {
        static_cast<char*>(buf)[count] = '\0';
    }
    return static_cast<int32_t>(count);
}

extern "C" int32_t zxmd_api_writea(const char* path, void* buf, uint32_t len) {
    return zxmd_api_write(path, buf, len, "a+");
}

extern "C" uint64_t zxmd_api_getFileSize(const char* path) {
    if (path == nullptr) {
        ZX_LOG_PARAM("path");
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
    if (path == nullptr) {
        ZX_LOG_PARAM("path");
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
    if (path == nullptr) {
        ZX_LOG_PARAM("path");
        return 0;
    }
    return access(path, F_OK) == 0 ? 1 : 0;
}

extern "C" int32_t zxmd_api_fileFormatFilter(const char* name) {
    if (name == nullptr) {
        ZX_LOG_PARAM("name");
        return 0;
    }
    const std::string_view text(name);
    return text.ends_with(".ts") || text.ends_with(".mp3") || text.ends_with(".mp4") ? 1 : 0;
}
