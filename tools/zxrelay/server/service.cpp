#include "server/service.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/failure.hpp"
#include "server/pid_file.hpp"
#include "server/watchdog.hpp"
#include "zxcommon.hpp"
#include "zxmd.h"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr char kUp[] = "up";
constexpr mode_t kUmask = 022;

void print_error(const std::string& sentence) {
    std::fprintf(stderr, "zxrelay: %s\n", sentence.c_str());
}

// Reads until the daemon reports that it is up, or closes its end. Returns what it has written.
std::string read_from_daemon(int fd) {
    std::string message;
    char chunk[512];
    ssize_t size;
    while (message != kUp && (size = read(fd, chunk, sizeof chunk)) != 0) {
        if (size > 0) {
            message.append(chunk, static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            break;
        }
    }
    return message;
}

[[noreturn]] void wait_for_daemon(int fd) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_UNBLOCK, &all, nullptr);  // so that a signal can end this wait
    const std::string message = read_from_daemon(fd);
    if (message == kUp) {
        give_up_pid_file();
        std::exit(EXIT_SUCCESS);
    }
    print_error(message.empty() ? "the daemon ended before it was up" : message);
    std::exit(EXIT_FAILURE);
}

// Each client needs a descriptor. This raises the limit of the process; zxmd_api_setUlimit() would
// also change a limit of the whole machine.
void allow_many_clients() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

}  // namespace

void fill_standard_descriptors() {
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    close(fd);
}

Service::Service(const Options& options) : options_(options) {
    umask(umask(0) | kUmask);
    if (options.daemon) {
        close_range(STDERR_FILENO + 1, ~0U, 0);
    }
}

// A watchdog that was killed could not remove the pid file. Its worker does that instead.
Service::~Service() {
    if (watchdog::is_orphan()) {
        take_over_pid_file();
    }
}

void Service::start(const User& user, Log& log) {
    is_started_ = true;
    if (!options_.pid_file.empty()) {
        claim_pid_file(options_.pid_file);
    }
    if (options_.daemon) {
        detach();
    }
    write_pid_file();
    allow_many_clients();
    // The watchdog becomes the user, too: from here on, root opens and removes nothing.
    user.become();
    log.settle();
    if (options_.watchdog) {
        watchdog::start(remove_pid_file);
        watchdog::end_with_watchdog();
    }
    if (options_.watchdog || !options_.run_as_user.empty()) {
        lock_pid_file_only();
    }
}

// zxmd_api_startDaemon() ends its caller at once. So a child process calls it; the process that the
// user started waits until the daemon is up, or prints why it is not.
void Service::detach() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        throw tools::system_failure("cannot become a daemon");
    }
    zxcommon::Descriptor daemon(ends[0]);
    starter_.emplace(ends[1]);
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        throw tools::system_failure("cannot become a daemon");
    }
    if (child > 0) {
        starter_.reset();
        wait_for_daemon(daemon.get());
    }
    if (zxmd_api_startDaemon("/") != 0) {
        throw tools::Failure("cannot become a daemon");
    }
    fill_standard_descriptors();
}

void Service::announce_up() {
    watchdog::set_phase(watchdog::Phase::up);
    if (starter_) {
        send(starter_->get(), kUp, sizeof kUp - 1, MSG_NOSIGNAL);
        starter_.reset();
    }
}

void Service::announce_delivered() {
    watchdog::set_phase(watchdog::Phase::delivered);
}

void Service::report(const std::string& sentence) {
    print_error(sentence);
    if (starter_) {
        send(starter_->get(), sentence.data(), sentence.size(), MSG_NOSIGNAL);
    }
    if (is_started_ && !options_.log_file.empty()) {
        log({Level::error, kTag}, "%s", sentence.c_str());
    }
}

}  // namespace relay
