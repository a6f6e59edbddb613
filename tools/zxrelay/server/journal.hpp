// Priorities for the journal of systemd.
#pragma once

namespace relay {

// Does nothing if standard error is not the journal. Otherwise starts a process that puts the
// priority in front of each log line, such as "<4>" for a warning, which the journal takes off
// again. Standard error becomes its input. Because it is a process of its own, the last words of a
// relay that crashes still reach the journal. It ends when nobody can write to it any more, and is
// not a child of this process, whose children are the workers of a watchdog. Throws a Failure.
void give_lines_priorities();

}  // namespace relay
