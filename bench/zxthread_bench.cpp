// Creating and destroying a worker, compared with bare threads and threads of GLib.
#include "zxthread.h"

#include <glib.h>

#include "support.hpp"

namespace {

void* work(void* argument) {
    return argument;
}

void live_library() {
    zxthread_ctt thread{};
    zxthread_api_create(&thread, "bench", work, nullptr);
    zxthread_api_destroy(&thread);
}

void live_pthread() {
    pthread_t thread;
    pthread_create(&thread, nullptr, work, nullptr);
    pthread_join(thread, nullptr);
}

void live_glib() {
    g_thread_join(g_thread_new("bench", work, nullptr));
}

void lives(benchmark::State& state, void (*live)()) {
    for ([[maybe_unused]] auto _ : state) {
        live();
    }
}
BENCHMARK_CAPTURE(lives, a, live_library)->Name("create_destroy/library")->UseRealTime();
BENCHMARK_CAPTURE(lives, b, live_pthread)->Name("create_destroy/pthread")->UseRealTime();
BENCHMARK_CAPTURE(lives, c, live_glib)->Name("create_destroy/glib")->UseRealTime();

}  // namespace
