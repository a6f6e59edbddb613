// The pid file, which names the process to send signals to. A process has at most one, because the
// file is removed when the process exits.
#pragma once

#include <string>

namespace relay {

// Opens and locks the file. This process removes it at exit. Child processes share the lock. A file
// without a lock is left over from a process that died. Throws a Failure.
void claim_pid_file(const std::string& path);

// Writes the ID of this process into the file. From now on this process removes the file at exit.
void write_pid_file();

// This process keeps the lock and can no longer write the file: it serves strangers, and the file
// tells an administrator which process to signal.
void lock_pid_file_only();

// This process will remove the file in place of its owner, which has died.
void take_over_pid_file();

// This process will not remove the file: another one has taken it over.
void give_up_pid_file();

// Does nothing in a process that does not own the file. Safe in signal handlers.
void remove_pid_file();

}  // namespace relay
