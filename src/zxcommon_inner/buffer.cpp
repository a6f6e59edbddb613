#include "zxt.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "zxcommon_inner/messages.hpp"
#include "zxmem.h"

namespace {

constexpr char kSource[] = "src/zxcommon_inner";
constexpr char kCopyName[] = "selfcp_buf";

}  // namespace

extern "C" int32_t zxt_innerapi_bufSwitch(void* buf1, void* buf2, uint32_t len) {
    if (len > ZXT_SWITCH_SIZE) {
        return -2;
    }
    if (!ZX_ARE_GIVEN({buf1, "buf1"}, {buf2, "buf2"})) {
        return -1;
    }
    char scratch[ZXT_SWITCH_SIZE];
    std::memcpy(scratch, buf1, len);
    std::memmove(buf1, buf2, len);  // the two may be parts of one buffer
    std::memcpy(buf2, scratch, len);
    return 0;
}

extern "C" int32_t zxt_innerapi_bufOffset(uint8_t* buf, int32_t offset, int32_t len) {
    if (!ZX_ARE_GIVEN({buf, "buf"})) {
        return -1;
    }
    const std::int64_t distance = std::abs(std::int64_t{offset});
    const std::int64_t extent = distance + len;
    if (len < 0 || extent > std::numeric_limits<std::int32_t>::max()) {
        ZX_LOG(error, "Content of %d bytes cannot move by %d", len, offset);
        return -1;
    }
    const auto content = static_cast<std::size_t>(len);
    const auto total = static_cast<std::size_t>(extent);
    const auto gap = static_cast<std::size_t>(distance);
    const bool to_front = offset > 0;
    void* copy = zxmem_api_malloc(static_cast<std::uint32_t>(to_front ? content : total), kCopyName,
                                  kSource, __LINE__);
    if (copy == nullptr) {
        ZX_LOG_MALLOC(kCopyName);
        return -1;
    }
    if (to_front) {
        std::memcpy(copy, buf + gap, content);
        std::memset(buf, 0, total);
        std::memcpy(buf, copy, content);
    } else {
        std::memcpy(static_cast<std::uint8_t*>(copy) + gap, buf, content);
        std::memcpy(buf, copy, total);  // the copy is zero in front of the content
    }
    zxmem_api_free(&copy);
    return 0;
}
