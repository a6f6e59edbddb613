#include "zxt.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "internal/guard.hpp"
#include "internal/length.hpp"
#include "internal/safe_name.hpp"
#include "internal/whole_file.hpp"
#include "zxcommon_inner/messages.hpp"
#include "zxdiag/trace.hpp"

namespace {

using zx::diag::Span, zx::diag::TracedWait;

constexpr char kSilently[] = "  > /dev/null";
constexpr char kOutputPath[] = "/tmp/zxcmd_info";
constexpr std::size_t kCommandSize = 1024;
constexpr std::size_t kGrepSize = 2048;

static_assert(sizeof kSilently - 1 == ZXT_CMD_ROOM);

// Anybody may write to /tmp. A link there could send the output into another file, and a file of
// somebody else could be changed before it is read. So this function makes an empty file of ours
// and moves it over the path, which is never free in between. The sticky bit keeps others from
// replacing our file. The caller reads the output through the descriptor, not through the path.
int make_output() {
    char own[] = "/tmp/zxcmd_info_XXXXXX";
    const int fd = mkostemp(own, O_CLOEXEC);
    // The shell opens the file by its name, so its permissions must not depend on the umask.
    if (fd >= 0 && (fchmod(fd, 0600) != 0 || rename(own, kOutputPath) != 0)) {
        const int code = errno;
        unlink(own);
        close(fd);
        errno = code;
        return -1;
    }
    return fd;
}

}  // namespace

extern "C" int32_t zxt_innerapi_cmdRet(char* cmd) {
    if (!ZX_ARE_GIVEN({cmd, "cmd", zx::kErrorParam})) {
        return -1;
    }
    std::memcpy(cmd + std::strlen(cmd), kSilently, sizeof kSilently);
    return zx::run(cmd) == 0 ? 1 : 0;
}

extern "C" int32_t zxt_innerapi_cmdReadByPipe(const char* cmd, char* info, uint32_t size) {
    if (!ZX_ARE_GIVEN({cmd, "cmd"}, {info, "info"})) {
        return -1;
    }
    std::memset(info, 0, size);
    const TracedWait traced(Span::command, cmd);
    zx::CancelHeld held;
    std::FILE* const pipe = popen(cmd, "re");
    if (pipe == nullptr) {
        return -1;
    }
    // pclose() waits for the command.
    const std::size_t room = std::min(size, zx::kMaxLength);
    const std::size_t count =
        held.wait([=] { return zx::read_whole(fileno(pipe), info, room); }, [=] { pclose(pipe); });
    pclose(pipe);
    return static_cast<int32_t>(count);
}

extern "C" int32_t zxt_innerapi_cmdReadByTmp(const char* cmd, char* info, uint32_t size) {
    if (!ZX_ARE_GIVEN({cmd, "cmd"}, {info, "info"})) {
        return -1;
    }
    char command[kCommandSize]{};
    const int length = std::snprintf(command, sizeof command, "%s >%s", cmd, kOutputPath);
    if (!zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Command(%s) is too long", cmd);
        return -1;
    }
    const TracedWait traced(Span::command, cmd);
    zx::CancelHeld held;
    zx::UniqueFd file(make_output());
    if (file.get() < 0) {
        ZX_LOG(error, "Create(%s) failed: %d %s", kOutputPath, errno, std::strerror(errno));
        return -1;
    }
    const int status = held.wait([&] { return std::system(command); }, [&] { file.reset(); });
    if (status == -1 && errno != ECHILD) {  // not started: the empty file is no answer
        file.reset();
    }
    return zx::read_once(held, kOutputPath, std::move(file), info, size);
}

extern "C" int32_t zxt_innerapi_cmdIsGrep(const char* cmd) {
    if (!ZX_ARE_GIVEN({cmd, "cmd"})) {
        return -1;
    }
    char output[kGrepSize]{};
    return zxt_innerapi_cmdReadByPipe(cmd, output, sizeof output - 1) > 0 ? 1 : 0;
}

extern "C" int32_t zxt_innerapi_kill(const char* cmd) {
    if (!ZX_ARE_GIVEN({cmd, "cmd"})) {
        return -1;
    }
    char command[kCommandSize]{};
    const int length = std::snprintf(command, sizeof command, "kill -9 ` %s`", cmd);
    if (!zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Command(%s) is too long", cmd);
        return -1;
    }
    const int32_t grep = zxt_innerapi_cmdIsGrep(cmd);
    return grep == 1 ? zx::run(command) : grep;
}
