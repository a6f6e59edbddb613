// Runs a part of a test in a process of its own, for changes that a process cannot undo.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace zx::test {

// The result of `work` in a child process, or "<ended by N>" when signal N ended that process.
inline std::string in_child(const std::function<std::string()>& work) {
    int ends[2];
    if (pipe(ends) != 0) {
        return "<no pipe>";
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const std::string result = work();
        const ssize_t written = write(ends[1], result.data(), result.size());
        _exit(written == static_cast<ssize_t>(result.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string result;
    char chunk[4096];
    for (ssize_t size = 0; (size = read(ends[0], chunk, sizeof chunk)) > 0;) {
        result.append(chunk, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFSIGNALED(status) ? "<ended by " + std::to_string(WTERMSIG(status)) + ">" : result;
}

// Mounts an empty disk on a directory, for this process alone. False when that is not permitted.
inline bool own_disk(const std::string& directory, const char* options) {
    return unshare(CLONE_NEWNS) == 0 &&
           mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", directory.c_str(), "tmpfs", 0, options) == 0;
}

}  // namespace zx::test
