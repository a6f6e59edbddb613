// CRCs compared with libraries that have the same polynomials. zlib takes the bits of a byte in the
// opposite order.
#include "zxcrc.h"

#include <isa-l/crc.h>
#include <zlib.h>

#include "support.hpp"

extern "C" {
#include <libavutil/crc.h>
}

namespace {

template <auto kCrc>
void library(const std::uint8_t* data, std::size_t size) {
    benchmark::DoNotOptimize(kCrc(data, static_cast<std::uint32_t>(size)));
}

template <AVCRCId kId>
void libavutil(const std::uint8_t* data, std::size_t size) {
    static const AVCRC* const table = av_crc_get_table(kId);
    benchmark::DoNotOptimize(av_crc(table, 0xFFFFFFFF, data, size));
}

void zlib(const std::uint8_t* data, std::size_t size) {
    benchmark::DoNotOptimize(crc32(0, data, static_cast<uInt>(size)));
}

void isal(const std::uint8_t* data, std::size_t size) {
    benchmark::DoNotOptimize(crc32_ieee(0, const_cast<std::uint8_t*>(data), size));
}

// A transport packet and two buffers.
void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(188)->Arg(4096)->Arg(65536);
}

using zx::bench::over_bytes;
BENCHMARK(over_bytes<library<zxcrc_api_CRC32>>)->Name("CRC32/library")->Apply(sizes);
BENCHMARK(over_bytes<isal>)->Name("CRC32/isa-l")->Apply(sizes);
BENCHMARK(over_bytes<zlib>)->Name("CRC32/zlib")->Apply(sizes);
BENCHMARK(over_bytes<libavutil<AV_CRC_32_IEEE>>)->Name("CRC32/libavutil")->Apply(sizes);
BENCHMARK(over_bytes<library<zxcrc_api_CRC16>>)->Name("CRC16/library")->Apply(sizes);
BENCHMARK(over_bytes<libavutil<AV_CRC_16_ANSI_LE>>)->Name("CRC16/libavutil")->Apply(sizes);
BENCHMARK(over_bytes<library<zxcrc_api_CRC>>)->Name("CRC/library")->Apply(sizes);
BENCHMARK(over_bytes<libavutil<AV_CRC_16_CCITT>>)->Name("CRC/libavutil")->Apply(sizes);

}  // namespace
