// The process itself: daemon, worker of a watchdog, user.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/log.hpp"
#include "zxmd.h"
#include "zxsignal.h"

namespace {

constexpr char kTag[] = "ZXMD";
constexpr mode_t kUmask = 022;

// Goes on in the child; the parent ends.
void leave_parent(const char* func) {
    std::fflush(nullptr);  // otherwise both would write what is buffered
    const pid_t pid = fork();
    if (pid < 0) {
        ZX_LOG_FROM(func, error, "ERROR: fork");
        std::exit(-1);
    }
    if (pid > 0) {
        std::exit(0);
    }
}

// The status of the child that ended, whichever it was.
pid_t wait_for_child(const char* func, int& status) {
    for (;;) {
        const pid_t pid = waitpid(0, &status, WNOHANG);
        if (pid > 0) {
            return pid;
        }
        if (pid < 0 && errno != ECHILD) {
            ZX_LOG_FROM(func, error, "wait:  %d %s", errno, std::strerror(errno));
        }
        sleep(1);
    }
}

const char* signal_text(int number) {
    const bool is_known = number > 0 && number < ZXSIGNAL_COUNT;
    const char* const text = is_known ? zxsignal_desstring[number] : nullptr;
    return text != nullptr ? text : zxsignal_desstring[0];
}

}  // namespace

extern "C" int32_t zxmd_api_startDaemon(const char* logdir) {
    if (logdir == nullptr) {
        ZX_LOG_PARAM("logdir");
        return -1;
    }
    leave_parent(__func__);
    setsid();
    leave_parent(__func__);
    umask(kUmask);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        close(fd);
    }
    const int result = chdir(logdir);
    if (result != 0) {
        ZX_LOG(error, "ERROR: can't change directory to %s: chdir", logdir);
        std::exit(-1);
    }
    return result;
}

extern "C" int32_t zxmd_api_watchdog(int32_t (*childfunc)(void* arg), void* arg) {
    if (childfunc == nullptr) {
        ZX_LOG_PARAM("childfunc");
        return -1;
    }
    zxsignal_api_catch();
    for (;;) {
        std::fflush(nullptr);
        const pid_t pid = fork();
        if (pid < 0) {
            ZX_LOG(error, "error in fork!");
            std::exit(1);
        }
        if (pid == 0) {
            return childfunc(arg);
        }
        ZX_LOG(info, "I am father");
        int status = 0;
        const pid_t ended = wait_for_child(__func__, status);
        if (WIFSIGNALED(status)) {
            ZX_LOG(error, "child[%d] is end by signal:%s", ended, signal_text(WTERMSIG(status)));
        } else {
            ZX_LOG(info, "child[%d] has exited", ended);
        }
    }
}

extern "C" int32_t zxmd_api_changeUser(const char* name) {
    if (name == nullptr) {
        ZX_LOG(error, "Param error###username");
        return -1;
    }
    const passwd* const user = getpwnam(name);
    if (user == nullptr) {
        ZX_LOG(error, "ERROR: can't find user '%s': getpwnam failed", name);
        return -1;
    }
    const uid_t uid = user->pw_uid;
    // Only an administrator has supplementary groups to give up.
    if (setgid(user->pw_gid) != 0 ||
        (geteuid() == 0 && initgroups(user->pw_name, user->pw_gid) != 0)) {
        ZX_LOG(error, "ERROR: can't change group id: setgid");
        return -2;
    }
    if (setuid(uid) != 0) {
        ZX_LOG(error, "ERROR: can't change user id: setuid");
        return -3;
    }
    ZX_LOG(info, "Changed process user id to '%s'", name);
    return 0;
}
