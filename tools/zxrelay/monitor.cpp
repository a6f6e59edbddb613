#include "monitor.hpp"

#include <cstdio>

#include "common/seconds.hpp"
#include "zxlog.h"
#include "zxt.h"
#include "zxtime.h"

namespace relay {
namespace {

using tools::kMicro;

constexpr std::uint8_t kAsBits = 1;

struct Text {
    char chars[ZXLOG_SCRATCH_SIZE] = "";
};

Text bit_rate(std::uint64_t bytes, std::uint64_t micros) {
    Text text;
    zxt_innerapi_bit2str_64(text.chars, bytes * 8 * kMicro / (micros == 0 ? 1 : micros), kAsBits);
    return text;
}

}  // namespace

Monitor::Monitor(const Roster& roster)
    : roster_(roster), start_us_(zxtime_api_upTimeUs()), last_us_(start_us_) {}

void Monitor::print_when_due() {
    if (zxtime_api_upTimeUs() - last_us_ >= kMicro) {
        print();
    }
}

void Monitor::print() {
    const std::uint64_t now = zxtime_api_upTimeUs();
    const Counters total = roster_.total();
    Text uptime;
    zxlog_api_sec2Time((now - start_us_) / kMicro, uptime.chars);
    std::printf(
        "%s  in %s/s  out %s/s  clients %llu  fifo %.0f%%  dropped %llu  slow clients missed "
        "%llu\n",
        uptime.chars, bit_rate(total.bytes_in - last_in_, now - last_us_).chars,
        bit_rate(total.bytes_out - last_out_, now - last_us_).chars,
        static_cast<unsigned long long>(total.clients), roster_.fill_ratio() * 100,
        static_cast<unsigned long long>(total.dropped_fifo_full),
        static_cast<unsigned long long>(total.dropped_slow_client));
    std::fflush(stdout);
    last_us_ = now;
    last_in_ = total.bytes_in;
    last_out_ = total.bytes_out;
}

}  // namespace relay
