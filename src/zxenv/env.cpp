#include "zxenv.h"

#include <cerrno>
#include <cstdlib>

#include "internal/args.hpp"
#include "internal/log.hpp"

namespace {

constexpr char kTag[] = "ENV";

}  // namespace

extern "C" const char* zxenv_api_get(const char* name, const char* defaultValue) {
    if (!ZX_ARE_GIVEN({name, "name"})) {
        return defaultValue;
    }
    const char* const value = std::getenv(name);
    return value != nullptr ? value : defaultValue;
}

extern "C" int32_t zxenv_api_set(const char* name, const char* str_value, int8_t overwrite) {
    if (!ZX_ARE_GIVEN({name, "name"}, {str_value, "str_value"})) {
        return 0;
    }
    if (setenv(name, str_value, overwrite) != 0) {
        ZX_LOG(error, "setenv(%s=%s, overwrite:%d)  failed", name, str_value, overwrite);
        return 0;
    }
    return 1;
}

extern "C" int32_t zxenv_api_unset(const char* name) {
    if (name == nullptr) {  // the C library may rely on a name
        errno = EINVAL;
        return -1;
    }
    return unsetenv(name);
}

extern "C" int32_t zxenv_api_put(char* name_val) {
    if (!ZX_ARE_GIVEN({name_val, "name_val"})) {
        return 0;
    }
    if (putenv(name_val) != 0) {
        ZX_LOG(error, "putenv:%s   failed", name_val);
        return 0;
    }
    return 1;
}
