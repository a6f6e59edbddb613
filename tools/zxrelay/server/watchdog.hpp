// The supervisor of the relay: zxmd_api_watchdog() with an end.
//
// The library's watchdog starts a worker again whatever it died of, and never ends itself. Around
// each of its forks the supervisor here sees to what is missing: SIGTERM and SIGINT end it together
// with its worker, and it ends when there is nothing left to do. The other way round, a worker ends
// when its supervisor is gone.
#pragma once

namespace relay::watchdog {

enum class Phase { starting, up, delivered };

// Returns in each worker; SIGINT, SIGTERM and SIGUSR1 are blocked before. In the supervisor
// `at_end`, which is safe in signal handlers, is called last.
void enter(void (*at_end)());

// For the worker. A relay that has not been up once is not started again, nor is one that has
// delivered its stream. Nothing without a watchdog.
void set_phase(Phase phase);

// For the worker, when it has its user: asks for SIGTERM when the supervisor dies.
void follow_supervisor();

// For the worker: true when the supervisor has died.
bool is_orphan();

}  // namespace relay::watchdog
