// Amounts as texts and the output of commands, compared with the C library and GLib.
#include "zxt.h"

#include <glib.h>

#include <cstdio>

#include "support.hpp"

namespace {

constexpr std::uint64_t kAmount = 1536ULL << 20U;
char g_text[128];

void print_library() {
    zxt_innerapi_bit2str_64(g_text, kAmount, 0);
}
void print_libc() {
    std::snprintf(g_text, sizeof g_text, "%.2fGB", static_cast<double>(kAmount) / (1U << 30U));
}
void print_glib() {
    g_free(g_format_size_full(kAmount, G_FORMAT_SIZE_IEC_UNITS));
}

constexpr char kCommand[] = "echo 12345";

void run_library() {
    zxt_innerapi_cmdReadByPipe(kCommand, g_text, sizeof g_text - 1);
}
void run_libc() {
    std::FILE* const pipe = popen(kCommand, "re");
    benchmark::DoNotOptimize(std::fread(g_text, 1, sizeof g_text - 1, pipe));
    pclose(pipe);
}
// Runs the command through the shell, as the other candidates do.
void run_glib() {
    gchar* text = nullptr;
    g_spawn_command_line_sync("/bin/sh -c 'echo 12345'", &text, nullptr, nullptr, nullptr);
    g_free(text);
}

void calls(benchmark::State& state, void (*call)()) {
    for ([[maybe_unused]] auto _ : state) {
        call();
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(calls, a, print_library)->Name("bit2str/library");
BENCHMARK_CAPTURE(calls, b, print_libc)->Name("bit2str/snprintf");
BENCHMARK_CAPTURE(calls, c, print_glib)->Name("bit2str/glib");
BENCHMARK_CAPTURE(calls, d, run_library)->Name("cmdReadByPipe/library")->UseRealTime();
BENCHMARK_CAPTURE(calls, e, run_libc)->Name("cmdReadByPipe/popen")->UseRealTime();
BENCHMARK_CAPTURE(calls, f, run_glib)->Name("cmdReadByPipe/glib")->UseRealTime();

}  // namespace
