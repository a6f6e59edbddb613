#include "zxcommon.h"

#include <cstring>

#include "internal/args.hpp"

namespace {

constexpr char kTag[] = "ZXCOMMON_INNER";
constexpr char kPlatform[] = "linux64";
constexpr char kModules[] =
    "|json|env|epoll|fifo|memapi|netframe|net|system|mpegts|signal|thread|time|types";

static_assert(sizeof kPlatform - 1 + sizeof kModules == ZXCOMMON_INFO_SIZE);

}  // namespace

extern "C" const char* zxcommon_api_version(void) {
    return "01.03.26";
}

extern "C" void zxcommon_api_info(char* str) {
    if (!ZX_ARE_GIVEN({str, "str"})) {
        return;
    }
    std::strcat(str, kPlatform);
    std::strcat(str, kModules);
}
