// How many descriptors are open, by kind.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "zxdiag/answers.hpp"
#include "zxdiag/json.hpp"

namespace zx::diag {
namespace {

// Kinds of which the system tells no more than a name, "anon_inode:NAME".
struct Named {
    std::string_view its;
    const char* kind;
};
constexpr Named kNamed[] = {
    {"[eventfd]", "eventfd"},   {"[eventpoll]", "epoll"}, {"[timerfd]", "timerfd"},
    {"[signalfd]", "signalfd"}, {"inotify", "inotify"},
};

class Kinds {
public:
    void count(const char* kind) {
        ++open_;
        Kind* const end = kinds_ + size_;
        Kind* const found = std::find_if(
            kinds_, end, [kind](const Kind& its) { return std::strcmp(its.name, kind) == 0; });
        if (found != end) {
            ++found->count;
        } else if (size_ < std::size(kinds_)) {
            kinds_[size_++] = {kind, 1};
        }
    }

    [[nodiscard]] cJSON* as_object() const {
        cJSON* const answer = cJSON_CreateObject();
        add_number(answer, "open", open_);
        cJSON* const kinds = cJSON_AddArrayToObject(answer, "kinds");
        for (std::size_t i = 0; i < size_; ++i) {
            cJSON* const object = cJSON_CreateObject();
            cJSON_AddStringToObject(object, "kind", kinds_[i].name);
            add_number(object, "count", kinds_[i].count);
            cJSON_AddItemToArray(kinds, object);
        }
        return answer;
    }

private:
    struct Kind {
        const char* name;
        int count;
    };
    Kind kinds_[32]{};  // more than there are
    std::size_t size_ = 0;
    int open_ = 0;
};

int option_of(int fd, int option) {
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 ? value : -1;
}

const char* name_of_type(int type) {
    switch (type) {
        case SOCK_STREAM:
            return "tcp";
        case SOCK_DGRAM:
            return "udp";
        case SOCK_RAW:
            return "raw";
        default:
            return "socket";
    }
}

const char* kind_of_socket(int fd) {
    switch (option_of(fd, SO_DOMAIN)) {
        case AF_INET:
        case AF_INET6:
            return name_of_type(option_of(fd, SO_TYPE));
        case AF_UNIX:
            return "unix";
        case AF_PACKET:
            return "packet";
        case AF_NETLINK:
            return "netlink";
        default:
            return "socket";
    }
}

const char* kind_by_name(int fd) {
    char path[sizeof "/proc/self/fd/-2147483648"];
    char target[64];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
    const ssize_t size = readlink(path, target, sizeof target);
    std::string_view name(target, size > 0 ? static_cast<std::size_t>(size) : 0);
    constexpr std::string_view kPrefix = "anon_inode:";
    if (!name.starts_with(kPrefix)) {
        return "other";
    }
    name.remove_prefix(kPrefix.size());
    const auto* const found = std::find_if(std::begin(kNamed), std::end(kNamed),
                                           [name](const Named& its) { return its.its == name; });
    return found != std::end(kNamed) ? found->kind : "other";
}

// NULL: it is closed. Most kinds need one or three short system calls.
const char* kind_of(int fd) {
    struct stat its;
    if (fstat(fd, &its) != 0) {
        return nullptr;
    }
    switch (its.st_mode & S_IFMT) {
        case S_IFSOCK:
            return kind_of_socket(fd);
        case S_IFREG:
            return "file";
        case S_IFDIR:
            return "directory";
        case S_IFIFO:
            return "pipe";
        case S_IFCHR:
        case S_IFBLK:
            return "device";
        default:
            return kind_by_name(fd);
    }
}

// No descriptor has this number or a larger one. A list of the open ones would be slower than
// trying all numbers: the kernel would make a file for each. When no more can be opened, which is
// when this is asked, the limit has to do.
int end_of_numbers(rlim_t limit) {
    constexpr rlim_t kMost = 1U << 20U;  // as many as the kernel allows if nobody has changed it
    int end = static_cast<int>(std::min(limit, kMost));
    char status[4096];
    const int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return end;
    }
    const ssize_t size = read(fd, status, sizeof status - 1);
    close(fd);
    status[size > 0 ? size : 0] = '\0';
    constexpr char kKey[] = "\nFDSize:\t";
    if (const char* const found = std::strstr(status, kKey); found != nullptr) {
        std::from_chars(found + sizeof kKey - 1, status + sizeof status, end);
    }
    return end;
}

}  // namespace

Answer answer_descriptors(const Question&) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    Kinds kinds;
    for (int fd = 0, end = end_of_numbers(limit.rlim_cur); fd < end; ++fd) {
        if (const char* const kind = kind_of(fd); kind != nullptr) {
            kinds.count(kind);
        }
    }
    cJSON* const answer = kinds.as_object();
    add_number(answer, "limit", limit.rlim_cur);
    return {answer, nullptr};
}

}  // namespace zx::diag
