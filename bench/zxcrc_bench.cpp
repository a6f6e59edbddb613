// CRCs beside libavutil's with the same polynomials.
#include "zxcrc.h"

#include <benchmark/benchmark.h>

#include <vector>

extern "C" {
#include <libavutil/crc.h>
}

namespace {

constexpr int kPacket = 188;  // bytes of a transport packet
constexpr int kPage = 4096;

std::vector<std::uint8_t> message(const benchmark::State& state) {
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(i * 7);
    }
    return bytes;
}

template <auto kFunction>
void BM_zxcrc(benchmark::State& state) {
    const auto bytes = message(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(kFunction(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <AVCRCId kId>
void BM_av_crc(benchmark::State& state) {
    const auto bytes = message(state);
    const AVCRC* const table = av_crc_get_table(kId);
    for (auto _ : state) {
        benchmark::DoNotOptimize(av_crc(table, 0xFFFFFFFF, bytes.data(), bytes.size()));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_zxcrc<zxcrc_api_CRC32>)->Arg(kPacket)->Arg(kPage);
BENCHMARK(BM_av_crc<AV_CRC_32_IEEE>)->Arg(kPacket)->Arg(kPage);
BENCHMARK(BM_zxcrc<zxcrc_api_CRC16>)->Arg(kPacket)->Arg(kPage);
BENCHMARK(BM_av_crc<AV_CRC_16_ANSI_LE>)->Arg(kPacket)->Arg(kPage);
BENCHMARK(BM_zxcrc<zxcrc_api_CRC>)->Arg(kPacket)->Arg(kPage);
BENCHMARK(BM_av_crc<AV_CRC_16_CCITT>)->Arg(kPacket)->Arg(kPage);

}  // namespace
