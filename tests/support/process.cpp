#include "process.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

extern char** environ;

namespace zx::test {
namespace {

constexpr int kStepMs = 5;

}  // namespace

Process::Process(const std::vector<std::string>& args) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error("pipe2");
    }
    std::vector<char*> argv;
    for (const std::string& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    const int code = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    error_fd_ = ends[0];
    if (code != 0) {
        throw std::runtime_error("cannot start " + args[0]);
    }
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

int Process::wait(int timeout_ms) {
    for (int waited = 0; waited <= timeout_ms; waited += kStepMs) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        errors();
        usleep(kStepMs * 1000);
    }
    return -1;
}

std::string Process::errors() {
    char chunk[4096];
    ssize_t size;
    while ((size = read(error_fd_, chunk, sizeof chunk)) > 0) {
        errors_.append(chunk, static_cast<std::size_t>(size));
    }
    return errors_;
}

bool Process::says(const std::string& text, int timeout_ms) {
    for (int waited = 0; waited <= timeout_ms; waited += kStepMs) {
        if (errors().find(text) != std::string::npos) {
            return true;
        }
        usleep(kStepMs * 1000);
    }
    return false;
}

}  // namespace zx::test
