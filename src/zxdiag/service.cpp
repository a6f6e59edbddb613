#include "zxdiag/service.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>

#include "zxdiag/answers.hpp"
#include "zxdiag/log.hpp"
#include "zxdiag/memory.hpp"
#include "zxdiag/own_socket.hpp"
#include "zxdiag/quiet_thread.hpp"

namespace zx::diag {
namespace {

constexpr int kMostClients = 8;
constexpr int kBacklog = 8;
constexpr std::size_t kMostPending = 16U << 20U;  // bytes of answers that a client has not read
constexpr std::int64_t kPatienceMs = 5000;        // for a client that reads nothing
constexpr int kSeriesStepMs = 100;
constexpr int kRestMs = 1000;
constexpr std::int64_t kIdleMs = 10000;  // so long a client keeps its place from others
constexpr int kMostAtOnce = 1000;        // answers of a series in a step
constexpr int kNice = 19;

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// Somebody who asks. Its memory is given back when it leaves.
class Client {
public:
    [[nodiscard]] bool is_there() const { return socket_.number() >= 0; }
    [[nodiscard]] bool is_idle() const {
        return series_ == nullptr && pending_size_ == 0 && now_ms() - since_ms_ > kIdleMs;
    }
    [[nodiscard]] bool has_series() const { return series_ != nullptr; }

    void welcome(int fd) {
        socket_.set(fd);
        since_ms_ = now_ms();
    }

    // Leaves without touching memory.
    void forget() {
        socket_.close();
        asked_size_ = 0;
        has_ended_ = false;
        series_ = nullptr;
        pending_ = nullptr;
        pending_size_ = pending_at_ = 0;
    }

    void leave() {
        delete series_;
        cJSON_free(pending_);
        forget();
    }

    // A client whose answer waits is not asked for more.
    [[nodiscard]] pollfd waits_for() const {
        const int events = pending_size_ != 0 ? POLLOUT : has_ended_ ? 0 : POLLIN;
        return {socket_.number(), static_cast<short>(events), 0};
    }

    void handle(short events) {
        if ((events & POLLIN) != 0) {
            read_question();
        } else if ((events & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
            leave();
        }
        answer_waiting();
    }

    void go_on() {
        if (series_ == nullptr || pending_size_ != 0) {
            leave_if_stuck();
            return;
        }
        for (int i = 0;
             i < kMostAtOnce && series_ != nullptr && pending_size_ == 0 && !series_->is_over();
             ++i) {
            cJSON* const object = series_->next();
            if (object == nullptr) {
                break;
            }
            send(object);
            write_pending();
        }
        if (series_ != nullptr && series_->is_over()) {
            delete series_;
            series_ = nullptr;
        }
        answer_waiting();
    }

    // A client that asks no more leaves when it has its answers.
    void leave_if_done() {
        if (has_ended_ && series_ == nullptr && pending_size_ == 0) {
            leave();
        }
    }

private:
    void leave_if_stuck() {
        if (pending_size_ != 0 && now_ms() - since_ms_ > kPatienceMs) {
            leave();
        }
    }

    void read_question() {
        const ssize_t size =
            recv(socket_.get(), asked_ + asked_size_, sizeof asked_ - asked_size_, 0);
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            leave();
            return;
        }
        has_ended_ = size == 0;
        asked_size_ += size > 0 ? static_cast<std::size_t>(size) : 0;
        since_ms_ = now_ms();
        if (asked_size_ == sizeof asked_ && std::memchr(asked_, '\n', asked_size_) == nullptr) {
            send(error_object("the question is too long"));
            write_pending();
            leave();
        }
    }

    // A question waits until the answer to the one before is sent.
    void answer_waiting() {
        do {
            write_pending();
        } while (pending_size_ == 0 && series_ == nullptr && answer_first_line());
    }

    bool answer_first_line() {
        const void* const end = std::memchr(asked_, '\n', asked_size_);
        if (end == nullptr) {
            return false;
        }
        const auto size = static_cast<std::size_t>(static_cast<const char*>(end) - asked_);
        const Answer answer = answer_to(Question(asked_, size));
        asked_size_ -= size + 1;
        std::memmove(asked_, asked_ + size + 1, asked_size_);
        series_ = answer.series;
        if (answer.object != nullptr || series_ == nullptr) {
            send(answer.object);
        }
        return true;
    }

    void send(cJSON* object) {
        char* const text = cJSON_PrintUnformatted(object);
        cJSON_Delete(object);
        const std::size_t size = text != nullptr ? std::strlen(text) : 0;
        if (text == nullptr || size > kMostPending) {
            cJSON_free(text);
            leave();  // no memory
            return;
        }
        text[size] = '\n';  // in place of the NUL: the size is known
        pending_ = text;
        pending_size_ = size + 1;
        pending_at_ = 0;
        since_ms_ = now_ms();
    }

    void write_pending() {
        while (is_there() && pending_size_ != 0) {
            const ssize_t size = ::send(socket_.get(), pending_ + pending_at_,
                                        pending_size_ - pending_at_, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (size < 0) {
                if (errno != EAGAIN && errno != EINTR) {
                    leave();
                }
                return;
            }
            since_ms_ = now_ms();
            pending_at_ += static_cast<std::size_t>(size);
            if (pending_at_ == pending_size_) {
                cJSON_free(pending_);
                pending_ = nullptr;
                pending_size_ = pending_at_ = 0;
            }
        }
    }

    OwnSocket socket_;
    bool has_ended_ = false;  // asks no more, but may wait for answers
    char asked_[Question::kLongest + 1]{};
    std::size_t asked_size_ = 0;
    char* pending_ = nullptr;  // an answer that is being sent
    std::size_t pending_size_ = 0;
    std::size_t pending_at_ = 0;
    std::int64_t since_ms_ = 0;  // when it last took something
    Series* series_ = nullptr;
};

// The file of the listening socket, wherever the program is when it is removed.
class SocketFile {
public:
    void note(const char* path) {
        struct stat its {};
        if (realpath(path, path_) == nullptr) {
            std::snprintf(path_, sizeof path_, "%s", path);
        }
        is_noted_ = lstat(path_, &its) == 0;
        device_ = its.st_dev;
        inode_ = its.st_ino;
    }
    // Somebody may have put another file there.
    void remove() {
        struct stat its {};
        if (is_noted_ && lstat(path_, &its) == 0 && its.st_dev == device_ && its.st_ino == inode_) {
            unlink(path_);
        }
        is_noted_ = false;
    }

private:
    char path_[PATH_MAX]{};
    bool is_noted_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

struct Service {
    OwnSocket listener;
    pthread_t thread{};
    char path[sizeof sockaddr_un{}.sun_path]{};
    SocketFile file;
    Client clients[kMostClients];
};
constinit Service g_service;
constinit std::atomic<bool> g_is_serving{false};
constinit std::atomic<bool> g_must_stop{false};
constinit std::atomic<pid_t> g_thread{0};  // that answers

// False: nobody can be accepted now, such as when the process has no descriptor left.
bool accept_client(Service& service) {
    const int fd = accept4(service.listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) {
        return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    }
    for (Client& client : service.clients) {
        if (client.is_idle()) {
            client.leave();
        }
        if (!client.is_there()) {
            client.welcome(fd);
            return true;
        }
    }
    constexpr char kBusy[] = "{\"error\":\"too many clients\"}\n";
    (void)::send(fd, kBusy, sizeof kBusy - 1, MSG_NOSIGNAL | MSG_DONTWAIT);
    close(fd);
    return true;
}

// A step at most while somebody gets a series; otherwise a second, or until the end of a change.
int wait_ms(bool is_active) {
    const int due_ms = is_active ? kSeriesStepMs : kRestMs;
    const int log_ms = ms_until_log_is_restored();
    return log_ms >= 0 && log_ms < due_ms ? log_ms : due_ms;
}

// Returns when the service is to stop, or when the program has closed its socket.
void answer_all(Service& service) {
    bool is_full = false;  // the next step tries again to accept clients
    for (;;) {
        pollfd waits[kMostClients + 1];
        waits[kMostClients] = {service.listener.number(), is_full ? short{0} : short{POLLIN}, 0};
        bool is_active = is_full;
        for (int i = 0; i < kMostClients; ++i) {
            const Client& client = service.clients[i];
            waits[i] = client.waits_for();
            is_active = is_active || client.has_series() || (waits[i].events & POLLOUT) != 0;
        }
        if (poll(waits, kMostClients + 1, wait_ms(is_active)) < 0) {
            continue;
        }
        sample_memory();
        restore_log_when_due();
        if (g_must_stop.load() || service.listener.get() < 0) {
            return;
        }
        for (int i = 0; i < kMostClients; ++i) {
            Client& client = service.clients[i];
            if (waits[i].revents != 0) {
                client.handle(waits[i].revents);
            }
            client.go_on();
            client.leave_if_done();
        }
        is_full = waits[kMostClients].revents != 0 && !accept_client(service);
    }
}

// The program's work comes first, and its signals are handled by its own threads.
void* run(void*) {
    prctl(PR_SET_NAME, "zxdiag");
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kNice);
    g_thread.store(gettid());
    answer_all(g_service);
    g_thread.store(0);
    for (Client& client : g_service.clients) {
        client.leave();
    }
    return nullptr;
}

// NULL: nobody else can put anything in place of the socket.
const char* fault_of_directory(const char* path) {
    char directory[sizeof sockaddr_un{}.sun_path];
    std::snprintf(directory, sizeof directory, "%s", path);
    char* const slash = std::strrchr(directory, '/');
    if (slash == nullptr) {
        std::snprintf(directory, sizeof directory, ".");
    } else {
        slash[slash == directory ? 1 : 0] = '\0';
    }
    struct stat its;
    if (stat(directory, &its) != 0) {
        return std::strerror(errno);
    }
    if ((its.st_uid != 0 && its.st_uid != geteuid()) || (its.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return "others can write to the directory";
    }
    return nullptr;
}

// A socket on which nobody listens is left over from another process.
void remove_left_socket(const sockaddr_un& address) {
    struct stat its;
    if (lstat(address.sun_path, &its) != 0 || !S_ISSOCK(its.st_mode)) {
        return;
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool is_left =
        fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
        errno == ECONNREFUSED;
    if (fd >= 0) {
        close(fd);
    }
    if (is_left) {
        unlink(address.sun_path);
    }
}

// Returns an error number, or 0.
int listen_at(Service& service) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, service.path, sizeof address.sun_path);
    remove_left_socket(address);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return errno;
    }
    service.listener.set(fd);
    // The mode of the descriptor is that of the file from its first moment.
    if (fchmod(fd, S_IRUSR | S_IWUSR) != 0 ||
        bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return errno;
    }
    service.file.note(service.path);
    return listen(fd, kBacklog) == 0 ? 0 : errno;
}

void remove_file_at_exit() {
    if (is_serving()) {
        g_service.file.remove();
    }
}

}  // namespace

const char* start_service(const char* path) {
    Service& service = g_service;
    if (is_serving()) {
        return "it is served already";
    }
    const std::size_t size = std::strlen(path);
    if (size == 0 || size >= sizeof service.path) {
        return "the path is empty or too long";
    }
    std::memset(service.path, 0, sizeof service.path);
    std::memcpy(service.path, path, size);
    if (const char* const fault = fault_of_directory(path); fault != nullptr) {
        return fault;
    }
    int code = listen_at(service);
    if (code == 0) {
        g_must_stop.store(false);
        code = start_quiet_thread(service.thread, run);
    }
    if (code == 0) {
        g_is_serving.store(true);
        static bool is_registered = false;
        is_registered = is_registered || std::atexit(remove_file_at_exit) == 0;
        return nullptr;
    }
    service.file.remove();
    service.listener.close();
    return std::strerror(code);
}

void stop_service() {
    if (!is_serving()) {
        return;
    }
    g_must_stop.store(true);
    shutdown(g_service.listener.get(), SHUT_RDWR);  // wakes the thread, or it wakes by itself
    pthread_join(g_service.thread, nullptr);
    g_service.file.remove();
    g_service.listener.close();
    g_is_serving.store(false);
}

// The clients' memory stays as it is: the thread that was using it does not exist here.
void forget_service() {
    g_service.listener.close();
    for (Client& client : g_service.clients) {
        client.forget();
    }
    g_thread.store(0);
    g_is_serving.store(false);
}

bool is_serving() {
    return g_is_serving.load();
}

bool is_service_thread() {
    return g_thread.load() == gettid();
}

}  // namespace zx::diag
