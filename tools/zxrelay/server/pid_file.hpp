// The file that names the process to send signals to. One a process, as its removal at the end is.
#pragma once

#include <string>

namespace relay {

// Opens and locks it, and has this process remove it when it exits. The lock, which children
// share, tells a file whose process lives from one that was left behind. Throws a Failure.
void claim_pid_file(const std::string& path);

// Puts this process into the file; it is the one that removes it now.
void write_pid_file();

// Has this process remove the file in place of one that has died.
void inherit_pid_file();

// Leaves the file to the process that has written it.
void leave_pid_file();

// Nothing in a process that is not to do it. Safe in signal handlers.
void remove_pid_file();

}  // namespace relay
