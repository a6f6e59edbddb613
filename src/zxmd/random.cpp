#include "zxmd.h"

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "zxmd/messages.hpp"

namespace {

constexpr std::uint8_t kInsteadOfZero = 128;

void seed() {
    std::srand(static_cast<unsigned>(std::time(nullptr)));
}

}  // namespace

extern "C" uint32_t zxmd_api_randomU32(uint32_t min, uint32_t max) {
    seed();
    const auto value = static_cast<std::uint32_t>(std::rand());
    const std::uint32_t range = max - min + 1;
    return (range == 0 ? value : value % range) + min;
}

extern "C" void zxmd_api_randomInsert(uint8_t* buf, uint32_t len, uint32_t minOffset) {
    if (!ZX_ARE_GIVEN({buf, "buf"})) {
        return;
    }
    if (len <= minOffset) {
        return;
    }
    const std::uint32_t count = zxmd_api_randomU32(1, len - minOffset);
    const std::uint32_t offset = zxmd_api_randomU32(minOffset, len - count);
    std::memset(buf + offset, static_cast<int>(zxmd_api_randomU32(0, UINT8_MAX)), count);
}

extern "C" uint32_t zxmd_api_randomStr(uint8_t* buf, uint32_t len) {
    if (!ZX_ARE_GIVEN({buf, "buf"})) {
        return 0;
    }
    seed();
    for (std::uint32_t i = 0; i < len; ++i) {
        const auto value = static_cast<std::uint8_t>(std::rand());
        buf[i] = value != 0 ? value : kInsteadOfZero;
    }
    return len;
}
