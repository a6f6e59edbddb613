// Another program, started by a test.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace zx::test {

// Waits until `condition` is true. False when it is not after a minute.
bool comes_true(const std::function<bool()>& condition);

class Process {
public:
    // Starts a command of the shell, whose standard error can be read.
    explicit Process(const std::string& command);
    ~Process();  // kills it if it still runs
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int number) const;

    // Waits for the end. Returns the exit code, 128 + the signal that ended it, or -1 when it still
    // runs after a minute.
    int wait();

    // Standard error so far.
    std::string errors();

private:
    pid_t pid_ = -1;
    int error_fd_ = -1;
    std::string errors_;
};

// Checks that a program with wrong arguments fails with one sentence after its name.
void expect_complaint(const std::string& program, const std::string& arguments,
                      const std::string& sentence);

}  // namespace zx::test
