#include "process.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace zx::test {

bool comes_true(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < end) {
        if (condition()) {
            return true;
        }
        usleep(5000);
    }
    return condition();
}

Process::Process(const std::string& command) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(ends[1], STDERR_FILENO);
        execl("/bin/bash", "bash", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    error_fd_ = ends[0];
}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(error_fd_);
}

void Process::signal(int number) const {
    kill(pid_, number);
}

int Process::wait() {
    int status = 0;
    const auto has_ended = [&] {
        errors();
        return waitpid(pid_, &status, WNOHANG) == pid_;
    };
    if (!comes_true(has_ended)) {
        return -1;
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Process::errors() {
    char chunk[4096];
    ssize_t size;
    while ((size = read(error_fd_, chunk, sizeof chunk)) > 0) {
        errors_.append(chunk, static_cast<std::size_t>(size));
    }
    return errors_;
}

void expect_complaint(const std::string& program, const std::string& arguments,
                      const std::string& sentence) {
    SCOPED_TRACE(arguments);
    Process process("exec '" + program + "' " + arguments);
    EXPECT_GT(process.wait(), 0);
    const std::string said = process.errors();
    EXPECT_THAT(said, testing::StartsWith(program.substr(program.rfind('/') + 1) + ": "));
    EXPECT_THAT(said, testing::HasSubstr(sentence));
    EXPECT_EQ(said.find('\n') + 1, said.size()) << said;
}

}  // namespace zx::test
