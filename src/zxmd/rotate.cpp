#include "zxmd.h"

#include <unistd.h>

#include <cstdio>

#include "internal/safe_name.hpp"
#include "zxmd/messages.hpp"
#include "zxtime.h"

namespace {

constexpr std::size_t kCommandSize = 256;

}  // namespace

extern "C" void zxmd_api_newMsgFile(const char* path) {
    if (!ZX_ARE_GIVEN({path, "path"})) {
        return;
    }
    if (zxmd_api_getFileSize(path) <= ZXMD_MSG_FILE_LIMIT) {
        return;
    }
    char rotated[kCommandSize];
    char command[kCommandSize];
    const int name_length = std::snprintf(rotated, sizeof rotated, "%s_%s.txt", path,
                                          zxtime_api_curDTime("%04d%02d%02d%02d%02d%02d"));
    const int length = std::snprintf(command, sizeof command, "  mv  %s  %s", path, rotated);
    if (!zx::is_safe_path(path) || !zx::is_whole(name_length, sizeof rotated) ||
        !zx::is_whole(length, sizeof command)) {
        ZX_LOG(error, "Path(%s) is not fit for a command", path);
        return;
    }
    if (access(rotated, F_OK) == 0) {
        ZX_LOG(error, "File(%s) is there already", rotated);
        return;
    }
    zx::run_unasked(command);
}
