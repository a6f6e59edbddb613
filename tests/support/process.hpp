// Another program, started by a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zx::test {

class Process {
public:
    // Starts args[0] with the others as its arguments; its standard error can be read.
    explicit Process(const std::vector<std::string>& args);
    ~Process();  // kills what still runs
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;

    // Waits for the end: the exit code, 128 + the signal that ended it, or -1 after `timeout_ms`
    // without an end.
    int wait(int timeout_ms = 10000);

    // Standard error so far.
    std::string errors();

    // Waits until standard error holds `text`; false after `timeout_ms`.
    bool says(const std::string& text, int timeout_ms = 10000);

private:
    pid_t pid_ = -1;
    int error_fd_ = -1;
    std::string errors_;
};

}  // namespace zx::test
