// The watchdog of the relay: zxmd_api_watchdog(), but it can end.
//
// The library's watchdog restarts a worker that ends for any reason, and never ends itself. The
// handlers that run around each of its forks add what is missing: SIGTERM and SIGINT end the
// watchdog together with its worker, and the watchdog ends when nothing is left to do. A worker
// ends when its watchdog has died.
#pragma once

namespace relay::watchdog {

enum class Phase { starting, up, delivered };

// Forks the workers and returns in each of them. The caller has blocked SIGHUP, SIGINT,
// SIGTERM and SIGUSR1. The watchdog calls `at_end` before it exits; `at_end` must be safe in
// signal handlers.
void start(void (*at_end)());

// Called by the worker. The watchdog restarts a worker only if its phase is `up`. Does nothing
// without a watchdog.
void set_phase(Phase phase);

// Called by a worker that has read the configuration again. A later one finds that it was so.
void note_reload();
bool has_reloaded();

// Called by the worker. True if another worker was up before it.
bool is_restart();

// Called by the worker: the kernel will send it SIGTERM when the
// watchdog dies.
void end_with_watchdog();

// Called by the worker. True if the watchdog has died.
bool is_orphan();

}  // namespace relay::watchdog
