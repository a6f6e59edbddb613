// A line that the level suppresses, and a line to a file, also while the diagnosis keeps the lines
// in memory, compared with libavutil and spdlog.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <cstdio>

#include "diagnosis.hpp"
#include "internal/log.hpp"
#include "support.hpp"

extern "C" {
#include <libavutil/log.h>
}

namespace {

struct Off {};
using zx::bench::Counting;
using zx::bench::SecondThread;

constexpr char kTag[] = "NETWORK";
constexpr char kLogPath[] = "/tmp/zxlog_bench.log";
constexpr char kPeerPath[] = "/tmp/zxlog_bench_peer.log";

// Aligned, because a function of a few instructions is a fifth slower across two cache lines.
[[gnu::noinline, gnu::aligned(64)]] void log_stopped(const char* name, int code) {
    ZX_LOG(debug, "%s failed : %d", name, code);
}

[[gnu::noinline, gnu::aligned(64)]] void peer_stopped(const char* name, int code) {
    av_log(nullptr, AV_LOG_DEBUG, "%s failed : %d\n", name, code);
}

template <typename Switch>
void stopped_library(benchmark::State& state) {
    const SecondThread second;
    [[maybe_unused]] const Switch is_on;
    zxlog_api_setLoglevel(3);
    for (auto _ : state) {
        log_stopped("connect", 111);
    }
}
BENCHMARK(stopped_library<Off>)->Name("line_stopped/library");
BENCHMARK(stopped_library<Counting>)->Name("line_stopped/library+counting");

void stopped_libavutil(benchmark::State& state) {
    const SecondThread second;
    av_log_set_level(AV_LOG_INFO);
    for (auto _ : state) {
        peer_stopped("connect", 111);
    }
}
BENCHMARK(stopped_libavutil)->Name("line_stopped/libavutil");

template <typename Switch>
void line_library(benchmark::State& state) {
    const SecondThread second;
    [[maybe_unused]] const Switch is_on;
    zxlog_api_setFile(kLogPath);
    for (auto _ : state) {
        ZX_LOG(error, "%s failed : %d", "connect", 111);
    }
    zxlog_api_setFile(nullptr);
    unlink(kLogPath);
}
BENCHMARK(line_library<Off>)->Name("line_written/library");
BENCHMARK(line_library<Counting>)->Name("line_written/library+counting");

void line_spdlog(benchmark::State& state) {
    const SecondThread second;
    const auto logger = spdlog::basic_logger_mt(kTag, kPeerPath);
    logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e][%l][%n]%v");
    logger->flush_on(spdlog::level::trace);
    for (auto _ : state) {
        logger->error("{} failed : {}", "connect", 111);
    }
    spdlog::drop(kTag);
    unlink(kPeerPath);
}
BENCHMARK(line_spdlog)->Name("line_written/spdlog");

}  // namespace
