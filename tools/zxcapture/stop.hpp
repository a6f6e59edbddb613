// SIGINT, SIGTERM and SIGHUP end the program.
#pragma once

namespace capture {

// From now on these signals interrupt system calls, and stop_requested() is true after one. SIGHUP
// stays ignored under nohup. SIGPIPE is ignored: writing to a closed pipe is only an error.
void install_stop_handlers();

// As such a signal does.
void request_stop();

[[nodiscard]] bool stop_requested();

}  // namespace capture
