#include "zxt.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/log.hpp"
#include "zxcommon_inner/safe_name.hpp"
#include "zxmd/file.hpp"

namespace {

constexpr char kTag[] = "ZXCOMMON_INNER";
constexpr char kSilently[] = "  > /dev/null";
constexpr char kOutputPath[] = "/tmp/zxcmd_info";
constexpr std::size_t kCommandSize = 1024;
constexpr std::size_t kGrepSize = 2048;

static_assert(sizeof kSilently - 1 == ZXT_CMD_ROOM);

// Anybody may write to /tmp: a link there would send the output into a file of somebody's choice,
// a file of somebody else's could be changed before it is read, an old one be taken for the answer.
bool clear_output_path() {
    return unlink(kOutputPath) == 0 || errno == ENOENT;
}

zx::UniqueFile open_output() {
    const int fd = open(kOutputPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    zx::UniqueFile file(fd < 0 ? nullptr : fdopen(fd, "r"));
    if (file == nullptr && fd >= 0) {
        close(fd);
    }
    return file;
}

// True when both arguments are there; otherwise the missing one was logged for `func`.
bool has_arguments(const char* func, const char* cmd, const char* info) {
    if (cmd != nullptr && info != nullptr) {
        return true;
    }
    ZX_LOG_FROM(func, error, "Param error####%s", cmd == nullptr ? "cmd" : "info");
    return false;
}

}  // namespace

extern "C" int32_t zxt_innerapi_cmdRet(char* cmd) {
    if (cmd == nullptr) {
        ZX_LOG(error, "Error param ###cmd");
        return -1;
    }
    std::memcpy(cmd + std::strlen(cmd), kSilently, sizeof kSilently);
    return std::system(cmd) == 0 ? 1 : 0;
}

extern "C" int32_t zxt_innerapi_cmdReadByPipe(const char* cmd, char* info, uint32_t size) {
    if (!has_arguments(__func__, cmd, info)) {
        return -1;
    }
    std::memset(info, 0, size);
    std::FILE* const pipe = popen(cmd, "re");
    if (pipe == nullptr) {
        return -1;
    }
    const std::size_t count = std::fread(info, 1, std::min(size, zx::md::kMaxLength), pipe);
    pclose(pipe);
    return static_cast<int32_t>(count);
}

extern "C" int32_t zxt_innerapi_cmdReadByTmp(const char* cmd, char* info, uint32_t size) {
    if (!has_arguments(__func__, cmd, info)) {
        return -1;
    }
    char command[kCommandSize]{};
    const int length = std::snprintf(command, sizeof command, "%s >%s", cmd, kOutputPath);
    if (!zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Command(%s) is too long", cmd);
        return -1;
    }
    if (!clear_output_path()) {
        ZX_LOG(error, "Remove(%s) failed: %d %s", kOutputPath, errno, std::strerror(errno));
        return -1;
    }
    zx::run_unasked(command);
    return zx::md::read_once(__func__, kOutputPath, open_output(), info, size);
}

extern "C" int32_t zxt_innerapi_cmdIsGrep(const char* cmd) {
    if (cmd == nullptr) {
        ZX_LOG_PARAM("cmd");
        return -1;
    }
    char output[kGrepSize]{};
    return zxt_innerapi_cmdReadByPipe(cmd, output, sizeof output - 1) > 0 ? 1 : 0;
}

extern "C" int32_t zxt_innerapi_kill(const char* cmd) {
    if (cmd == nullptr) {
        ZX_LOG_PARAM("cmd");
        return -1;
    }
    char command[kCommandSize]{};
    const int length = std::snprintf(command, sizeof command, "kill -9 ` %s`", cmd);
    if (!zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Command(%s) is too long", cmd);
        return -1;
    }
    const int32_t grep = zxt_innerapi_cmdIsGrep(cmd);
    return grep == 1 ? std::system(command) : grep;
}
