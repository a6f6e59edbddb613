// SIGINT and SIGTERM ask for the end.
#pragma once

namespace capture {

// From now on these signals interrupt whatever waits, and a closed pipe is only an error of
// writing.
void listen_for_stop();

[[nodiscard]] bool stop_requested();

}  // namespace capture
