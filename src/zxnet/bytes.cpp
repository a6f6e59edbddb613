// Bytes as they are, and as hexadecimal digits.
#include <cstring>

#include "shared/hex.hpp"
#include "zxnet.h"
#include "zxnet/messages.hpp"

extern "C" void zxnet_api_num2str(const void* src, uint32_t len, void* dst) {
    if (ZX_ARE_GIVEN({src, "src"}, {dst, "dst"})) {
        std::memmove(dst, src, len);
    }
}

extern "C" void zxnet_api_str2num(const void* src, uint32_t len, void* dst) {
    if (ZX_ARE_GIVEN({src, "src"}, {dst, "dst"})) {
        std::memmove(dst, src, len);
    }
}

extern "C" int32_t zxnet_api_num2str16(const uint8_t* bytes, uint32_t len, char* out) {
    if (!ZX_ARE_GIVEN({bytes, "bytes"}, {out, "out"})) {
        return 0;
    }
    zx::write_hex(out + std::strlen(out), bytes, len, zx::kLowerDigits);
    return static_cast<int32_t>(len);
}
