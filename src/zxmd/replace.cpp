#include "zxmd.h"

#include <algorithm>
#include <cstdio>

#include "internal/log.hpp"
#include "zxcommon_inner/safe_name.hpp"
#include "zxmd/file.hpp"
#include "zxt.h"

namespace {

constexpr char kTag[] = "ZXMD";
constexpr std::size_t kNameSize = 256;
constexpr std::size_t kCommandSize = 512;

}  // namespace

extern "C" int32_t zxmd_api_writeProtect(const char* path, void* buf, uint32_t len) {
    if (path == nullptr) {
        ZX_LOG(error, "Param error###filename");
        return -1;
    }
    if (buf == nullptr) {
        ZX_LOG(error, "Param error###buf");
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
    std::remove(side);
    const int32_t count = zxmd_api_write(side, buf, len, "wx");  // x: no link is followed
    if (count >= 0 && static_cast<std::uint32_t>(count) < std::min(len, zx::md::kMaxLength)) {
        ZX_LOG(error, "write (%s) failed", side);
        return count;
    }
    if (count <= 0) {
        return count;
    }
    if (zxt_innerapi_cmdRet(command) != 1) {
        ZX_LOG(error, "inner error:cmd [%s] failed", command);
        return -1;
    }
    std::snprintf(command, kCommandSize, "rm  -fr   %s   ", side);
    zx::run_unasked(command);
    return count;
}
