#include "zxt.h"

#include <array>
#include <cstddef>
#include <cstdio>

#include "zxcommon_inner/messages.hpp"

static_assert(ZXT_UNIT_SIZE == ZXLOG_SCRATCH_SIZE);

namespace {

constexpr unsigned kStep = 10;  // each unit is 2^10 of the one before
constexpr std::array<const char*, 4> kByteUnits{"B", "KB", "MB", "GB"};
constexpr std::array<const char*, 4> kBitUnits{"b", "Kb", "Mb", "Gb"};

template <typename T>
struct Amount {
    T whole;
    T fraction;  // in 1024ths
    const char* unit;
};

template <typename T>
Amount<T> split(T value, bool bits) {
    std::size_t unit = 0;
    T whole = value;
    T fraction = 0;
    for (; whole >> kStep != 0 && unit + 1 < kByteUnits.size(); ++unit) {
        fraction = whole & ((T{1} << kStep) - 1);
        whole >>= kStep;
    }
    return {whole, fraction, (bits ? kBitUnits : kByteUnits)[unit]};
}

// `text_of` is the printer of the logging library for this width.
template <typename T>
char* print(char* out, T value, bool bits, char* (*text_of)(char*, T, T, const char*),
            zx::Caller caller = {}) {
    if (!zx::are_given({{out, "outstr"}}, kTag, caller)) {
        return nullptr;
    }
    const Amount<T> amount = split(value, bits);
    char scratch[ZXLOG_SCRATCH_SIZE] = {};
    return std::strcpy(out, text_of(scratch, amount.whole, amount.fraction, amount.unit));
}

}  // namespace

extern "C" char* zxt_innerapi_bit2str_64(char* outstr, uint64_t value, uint8_t bits) {
    return print(outstr, value, bits != 0, zxlog_innerapi_bitByte64);
}

extern "C" char* zxt_innerapi_bit2str_32(char* outstr, uint32_t value, uint8_t bits) {
    return print(outstr, value, bits != 0, zxlog_innerapi_bitByte32);
}
