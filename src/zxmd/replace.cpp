#include "zxmd.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "internal/guard.hpp"
#include "internal/length.hpp"
#include "internal/safe_name.hpp"
#include "zxmd/file.hpp"
#include "zxmd/messages.hpp"
#include "zxt.h"

namespace {

constexpr std::size_t kNameSize = 256;
constexpr std::size_t kCommandSize = 512;
constexpr std::uint64_t kStatBlock = 512;
constexpr mode_t kPermissions = 0777;

// All zeros when the file is missing.
struct stat look_at(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0) {
        status = {};
    }
    return status;
}

// True when the new content fits after cp has emptied the old file. True also when that cannot be
// found out: cp then decides.
bool has_room(const char* path, const struct stat& old, std::uint64_t size) {
    struct statvfs disk {};
    if (statvfs(path, &disk) != 0 || disk.f_blocks == 0 || disk.f_frsize == 0) {
        return true;
    }
    const std::uint64_t blocks = geteuid() == 0 ? disk.f_bfree : disk.f_bavail;
    const auto freed =
        S_ISREG(old.st_mode) ? static_cast<std::uint64_t>(old.st_blocks) * kStatBlock : 0;
    const std::uint64_t needed = (size + disk.f_frsize - 1) / disk.f_frsize * disk.f_frsize;
    return needed <= blocks * disk.f_frsize + freed;
}

// False when the content of a file did not reach the disk. True for a path that has no disk.
bool reaches_disk(const char* path) {
    const zx::UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    return fd.get() < 0 || fsync(fd.get()) == 0 || errno == EINVAL;
}

bool is_same(const struct stat& one, const struct stat& other) {
    return one.st_ino == other.st_ino && one.st_size == other.st_size &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec &&
           one.st_mtim.tv_nsec == other.st_mtim.tv_nsec;
}

// Moves the side file to the place of a file whose copy broke off. It gets the owner and the rights
// of the old file. When the path is a link, the file that it leads to is replaced; the link itself
// is replaced only when that file is on another disk.
void rescue(const char* side, const char* path, const struct stat& old) {
    if (old.st_ino != 0) {
        [[maybe_unused]] const int owned = chown(side, old.st_uid, old.st_gid);
        chmod(side, old.st_mode & kPermissions);
    }
    char real[PATH_MAX];
    if (realpath(path, real) == nullptr || std::rename(side, real) != 0) {
        std::rename(side, path);
    }
}

}  // namespace

extern "C" int32_t zxmd_api_writeProtect(const char* path, void* buf, uint32_t len) {
    if (!zx::md::has_target(path, buf)) {
        return -1;
    }
    char side[kNameSize];
    char command[kCommandSize + ZXT_CMD_ROOM];
    const int side_length = std::snprintf(side, sizeof side, "%s_tmp", path);
    const int length = std::snprintf(command, kCommandSize, "cp  -fr    %s  %s", side, path);
    if (!zx::is_safe_path(path) || !zx::is_whole(side_length, sizeof side) ||
        !zx::is_whole(length, kCommandSize)) {
        ZX_LOG(error, "Path(%s) is not fit for a command", path);
        return -1;
    }
    const zx::CancelHeld held;  // a cancellation must not leave half a copy
    std::remove(side);
    const int32_t count = zxmd_api_write(side, buf, len, "wx");  // x: a link is not followed
    if (count <= 0 || static_cast<std::uint32_t>(count) < std::min(len, zx::kMaxLength)) {
        std::remove(side);
        if (count >= 0 && len != 0) {
            ZX_LOG(error, "write (%s) failed", side);
        }
        return count;
    }
    if (!reaches_disk(side)) {
        std::remove(side);
        ZX_LOG(error, "write (%s) failed", side);
        return -1;
    }
    const struct stat old = look_at(path);
    if (!has_room(old.st_ino != 0 ? path : side, old, static_cast<std::uint64_t>(count))) {
        std::remove(side);
        ZX_LOG(error, "inner error:cmd [%s] failed", command);
        return -1;
    }
    if (zxt_innerapi_cmdRet(command) != 1 || !reaches_disk(path)) {
        ZX_LOG(error, "inner error:cmd [%s] failed", command);
        const bool is_file = old.st_ino == 0 || S_ISREG(old.st_mode);
        if (is_file && !is_same(look_at(path), old)) {
            rescue(side, path, old);
        }
        return -1;
    }
    std::snprintf(command, kCommandSize, "rm  -fr   %s   ", side);
    zx::run_unasked(command);
    return count;
}
