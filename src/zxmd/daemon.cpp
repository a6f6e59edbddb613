// The process itself: as a daemon, as the worker of a watchdog, under another user.
#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "internal/cancel.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/trace.hpp"
#include "zxmd.h"
#include "zxmd/messages.hpp"
#include "zxsignal.h"

namespace {

constexpr mode_t kUmask = 022;

// Forks: the child returns and the parent exits.
void leave_parent(zx::Caller caller = {}) {
    std::fflush(nullptr);  // otherwise both would write the buffered text
    const pid_t pid = fork();
    if (pid < 0) {
        ZX_LOG_AT(caller, error, "ERROR: fork");
        std::exit(-1);
    }
    if (pid > 0) {
        zx::diag::child_goes_on();
        std::exit(0);
    }
}

// A daemon may be started without standard error. The log would then use the next file that is
// opened.
void occupy_standard_error() {
    int fd = STDIN_FILENO;
    while (fd >= 0 && fd < STDERR_FILENO) {
        fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    if (fd > STDERR_FILENO) {  // standard error was open
        close(fd);
    }
}

// Waits until any child has ended, and gives its status.
pid_t wait_for_child(int& status, zx::Caller caller = {}) {
    const zx::diag::TracedWait traced(zx::diag::Span::command, caller.func);
    for (;;) {
        const pid_t pid = waitpid(0, &status, WNOHANG);
        if (pid > 0) {
            return pid;
        }
        if (pid < 0 && errno != ECHILD) {
            ZX_LOG_AT(caller, error, "wait:  %d %s", errno, std::strerror(errno));
        }
        sleep(1);
    }
}

// True also when this cannot be found out.
bool has_capabilities() {
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};
    return syscall(SYS_capget, &head, sets) != 0 ||
           std::ranges::any_of(sets, [](const __user_cap_data_struct& set) {
               return (set.effective | set.permitted | set.inheritable) != 0;
           });
}

// A change of the user keeps capabilities that are ambient, or that the program asked to keep. So
// the result is checked afterwards.
bool drop_capabilities() {
    __user_cap_header_struct head{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    syscall(SYS_capset, &head, none);
    return !has_capabilities();
}

bool is_only(uid_t uid) {
    uid_t uids[3];
    return getresuid(&uids[0], &uids[1], &uids[2]) == 0 && std::ranges::count(uids, uid) == 3;
}

// initgroups() may fail for lack of rights. That does no harm when the process already runs
// as this user, or has no capabilities and so no groups worth giving up.
bool take_groups(const char* name, uid_t uid, gid_t gid) {
    return setresgid(gid, gid, gid) == 0 &&
           (initgroups(name, gid) == 0 ||
            (errno == EPERM && (is_only(uid) || !has_capabilities())));
}

const char* signal_text(int number) {
    const bool is_known = number > 0 && number < ZXSIGNAL_COUNT;
    const char* const text = is_known ? zxsignal_desstring[number] : nullptr;
    return text != nullptr ? text : zxsignal_desstring[0];
}

}  // namespace

extern "C" int32_t zxmd_api_startDaemon(const char* logdir) {
    if (!ZX_ARE_GIVEN({logdir, "logdir"})) {
        return -1;
    }
    leave_parent();
    setsid();
    leave_parent();
    umask(kUmask);
    occupy_standard_error();
    // A log without a file goes to standard error. This call makes it copy that descriptor now: the
    // next line would come after the descriptor is closed.
    (void)zxlog_innerapi_logTime();
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        close(fd);
    }
    const int result = chdir(logdir);
    if (result != 0) {
        ZX_LOG(error, "ERROR: can't change directory to %s: chdir", logdir);
        std::exit(-1);
    }
    zx::diag::child_begins();
    return result;
}

extern "C" int32_t zxmd_api_watchdog(int32_t (*childfunc)(void* arg), void* arg) {
    if (!ZX_ARE_GIVEN({childfunc, "childfunc"})) {
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
            zx::diag::child_begins();
            return childfunc(arg);
        }
        ZX_LOG(info, "I am father");
        int status = 0;
        const pid_t ended = wait_for_child(status);
        if (WIFSIGNALED(status)) {
            ZX_LOG(error, "child[%d] is end by signal:%s", ended, signal_text(WTERMSIG(status)));
        } else {
            ZX_LOG(info, "child[%d] has exited", ended);
        }
    }
}

extern "C" int32_t zxmd_api_changeUser(const char* name) {
    if (!ZX_ARE_GIVEN({name, "username", zx::kParamError3})) {
        return -1;
    }
    const zx::CancelHeld held;
    const passwd* const user = getpwnam(name);
    if (user == nullptr) {
        ZX_LOG(error, "ERROR: can't find user '%s': getpwnam failed", name);
        return -1;
    }
    const uid_t uid = user->pw_uid;
    const gid_t gid = user->pw_gid;
    if (!take_groups(user->pw_name, uid, gid)) {
        ZX_LOG(error, "ERROR: can't change group id: setgid");
        return -2;
    }
    // Real, effective and saved: the process cannot go back to its former user.
    if (setresuid(uid, uid, uid) != 0 || (uid != 0 && !drop_capabilities())) {
        ZX_LOG(error, "ERROR: can't change user id: setuid");
        return -3;
    }
    ZX_LOG(info, "Changed process user id to '%s'", name);
    return 0;
}
