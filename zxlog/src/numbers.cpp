// Numbers as texts.
#include <cstdint>
#include <cstdio>

#include "zxlog.h"

extern "C" {

char* zxlog_innerapi_num2str(char* scratch, std::uint64_t num) {
    if (scratch == nullptr) {
        return nullptr;
    }
    std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu", static_cast<unsigned long long>(num));
    return scratch;
}

char* zxlog_innerapi_bitByte64(char* scratch, std::uint64_t whole, std::uint64_t fraction,
                               const char* unit) {
    if (scratch == nullptr) {
        return nullptr;
    }
    const auto whole_part = static_cast<unsigned long long>(whole);
    const char* const unit_text = unit != nullptr ? unit : "";
    if (fraction == 0) {
        std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu%s", whole_part, unit_text);
    } else {
        const auto hundredths = static_cast<unsigned>(fraction % 1024 * 100 / 1024);
        std::snprintf(scratch, ZXLOG_SCRATCH_SIZE, "%llu.%02u%s", whole_part, hundredths,
                      unit_text);
    }
    return scratch;
}

char* zxlog_innerapi_bitByte32(char* scratch, std::uint32_t whole, std::uint32_t fraction,
                               const char* unit) {
    return zxlog_innerapi_bitByte64(scratch, whole, fraction, unit);
}

}  // extern "C"
