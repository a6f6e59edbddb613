#include "zxnet.h"

#include <fcntl.h>
#include <net/if.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <span>

#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "internal/poll.hpp"
#include "zxepoll.h"
#include "zxtime.h"

static_assert(sizeof(pollfd_ctt) == 8);
static_assert(offsetof(pollfd_ctt, events) == 4 && offsetof(pollfd_ctt, revents) == 6);
static_assert(sizeof(ifreq) == 40);

namespace {

constexpr char kTag[] = "NETWORK";
constexpr std::uint32_t kMaxLength = 0x7FFFFFFE;
constexpr std::uint32_t kPieceSize = 1400;
constexpr std::uint32_t kDefaultTimeoutMs = 1000;
constexpr std::int32_t kSliceMs = 100;
constexpr int kFirstSlice = 10;
constexpr int kLastSlice = 4;

struct FdSets {
    fd_set read;
    fd_set write;
    fd_set except;
    int limit = 0;  // one above the highest descriptor

    FdSets() {
        FD_ZERO(&read);
        FD_ZERO(&write);
        FD_ZERO(&except);
    }

    void add(int fd, int events) {
        if ((events & ZXNET_POLL_READ) != 0) {
            FD_SET(fd, &read);
        }
        if ((events & ZXNET_POLL_WRITE) != 0) {
            FD_SET(fd, &write);
        }
        if ((events & ZXNET_POLL_EXCEPT) != 0) {
            FD_SET(fd, &except);
        }
        limit = std::max(limit, fd + 1);
    }

    // What select() gives when the signals that a handler takes in between are no end of it. The
    // time of the handlers counts, too.
    [[nodiscard]] int wait(timeval timeout) {
        const std::int64_t end =
            zx::steady_us() + timeout.tv_sec * std::int64_t{1000000} + timeout.tv_usec;
        int ready = select(limit, &read, &write, &except, &timeout);
        for (bool is_over = false; ready < 0 && errno == EINTR;) {
            if (is_over) {
                *this = {};
                return 0;
            }
            const std::int64_t left = std::max<std::int64_t>(end - zx::steady_us(), 0);
            is_over = left == 0;
            timeout = {left / 1000000, left % 1000000};
            ready = select(limit, &read, &write, &except, &timeout);  // the sets are as they were
        }
        return ready;
    }

    [[nodiscard]] std::int16_t events_of(int fd) const {
        return static_cast<std::int16_t>((FD_ISSET(fd, &read) ? ZXNET_POLL_READ : 0) |
                                         (FD_ISSET(fd, &write) ? ZXNET_POLL_WRITE : 0) |
                                         (FD_ISSET(fd, &except) ? ZXNET_POLL_EXCEPT : 0));
    }
};

pollfd_ctt record_of(int fd, std::uint32_t mode) {
    const bool write = mode == ZXNET_WAIT_WRITE;
    return {fd, static_cast<std::int16_t>(write ? ZXNET_POLL_WRITE : ZXNET_POLL_READ), 0};
}

std::uint32_t lower_length(std::uint32_t len, zx::Caller caller = {}) {
    if (len <= kMaxLength) {
        return len;
    }
    ZX_LOG_AT(caller, warning, "Recv len(%d) is out of range(0~%d),set to %d",
              static_cast<int>(len), static_cast<int>(kMaxLength), static_cast<int>(kMaxLength));
    return kMaxLength;
}

// Waits on an instance that is gone before the data is touched. The codes of the wait are those
// of the family.
std::int32_t wait_ready(int fd, std::uint8_t mode, std::uint32_t timeout_ms,
                        zx::Caller caller = {}) {
    return zx::with_fd(zxepoll_innerapi_open(2, caller.func, caller.line), [=](int epfd) {
        return zxepoll_waitfd_timeout(epfd, fd, mode, timeout_ms);
    });
}

// What 0 bytes mean after a wait that began at `start`.
std::int32_t judge_end(int fd, std::uint64_t start, std::uint32_t timeout_ms,
                       zx::Caller caller = {}) {
    const std::uint64_t now = zxtime_api_us();
    if (now < start) {
        ZX_LOG_AT(caller, warning,
                  "The current time is less than the previous time, and the system time may have "
                  "changed");
        return 0;
    }
    char text[ZXNET_TCP_STATE_TEXT_SIZE];
    if (now - start >= timeout_ms * std::uint64_t{1000} ||
        zxnet_api_isTcpStateOK(fd, nullptr, text) == 1) {
        return 0;
    }
    ZX_LOG_AT(caller, warning,
              "Epoll returns data quickly, but cannot read it. The TCP connection is abnormal %s",
              text);
    return ZXNET_HANGUP;
}

}  // namespace

extern "C" void zxnet_api_init(void) {}

extern "C" void zxnet_api_deinit(void) {}

extern "C" int32_t zxnet_api_socketNonblock(int fd, int8_t on) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return -1;
    }
    return fcntl(fd, F_SETFL, on == 1 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

extern "C" int32_t zxnet_api_poll(pollfd_ctt* fds, uint32_t count, int32_t timeoutMs) {
    if (fds == nullptr && count != 0) {
        ZX_LOG_PARAM("fds");
        return -1;
    }
    const std::span records(fds, count);
    FdSets sets;
    for (const pollfd_ctt& record : records) {
        if (record.fd >= FD_SETSIZE) {
            ZX_LOG(error, "Poll fd(%d) is out of range(0~%d)", record.fd, FD_SETSIZE - 1);
            return -1;
        }
        if (record.fd >= 0) {
            sets.add(record.fd, record.events);
        }
    }
    if (sets.limit == 0) {
        return 0;
    }
    const int ready = sets.wait({timeoutMs / 1000, timeoutMs % 1000 * 1000L});
    if (ready >= 0) {
        for (pollfd_ctt& record : records) {
            record.revents = record.fd >= 0 ? sets.events_of(record.fd) : std::int16_t{0};
        }
    }
    return ready;
}

extern "C" int32_t zxnet_api_waitFd(int fd, uint8_t mode) {
    pollfd_ctt record = record_of(fd, mode);
    for (int slice = kFirstSlice; slice >= kLastSlice; --slice) {
        if (const int32_t ready = zxnet_api_poll(&record, 1, kSliceMs); ready != 0) {
            return ready;
        }
    }
    return -1;
}

extern "C" int32_t zxnet_api_waitFdTimeout(int fd, uint32_t mode, uint32_t tries) {
    pollfd_ctt record = record_of(fd, mode);
    std::int64_t left = tries;
    int32_t ready = 0;
    do {
        ready = zxnet_api_poll(&record, 1, kSliceMs);
    } while (ready == 0 && left-- > 0);
    return left > 0 ? ready : -1;  // the last slice does not count, as the header says
}

extern "C" int32_t zxnet_api_epollRecv(int fd, void* buf, uint32_t len, uint32_t timeoutMs) {
    if (buf == nullptr) {
        ZX_LOG_PARAM("pbuf");
        return ZXNET_NO_BUF;
    }
    const std::uint32_t size = lower_length(len);
    const bool waits = timeoutMs != ZXNET_NO_WAIT;
    const std::uint64_t start = waits ? zxtime_api_us() : 0;
    if (waits) {
        const std::int32_t result = wait_ready(fd, ZXNET_WAIT_READ, timeoutMs);
        if (result < 0) {
            return result;
        }
    }
    const ssize_t received =
        zx::uninterrupted(fd, SO_RCVTIMEO, [=] { return recv(fd, buf, size, 0); });
    if (received < 0) {
        ZX_LOG(error, "recv error(%d): %d %s\n", fd, errno, std::strerror(errno));
        return ZXNET_IO_ERROR;
    }
    if (received == 0 && waits) {
        return judge_end(fd, start, timeoutMs);
    }
    return static_cast<int32_t>(received);
}

extern "C" int32_t zxnet_api_epollRecv3(int fd, void* buf, uint32_t len) {
    return zxnet_api_epollRecv(fd, buf, len, kDefaultTimeoutMs);
}

extern "C" int32_t zxnet_api_epollSend(int fd, const void* buf, uint32_t len, uint32_t timeoutMs) {
    if (buf == nullptr) {
        ZX_LOG_PARAM("pbuf");
        return ZXNET_NO_BUF;
    }
    const std::uint32_t size = lower_length(len);
    if (timeoutMs != ZXNET_NO_WAIT) {
        const std::int32_t result = wait_ready(fd, ZXNET_WAIT_WRITE, timeoutMs);
        if (result < 0) {
            return result;
        }
    }
    const ssize_t sent =
        zx::uninterrupted(fd, SO_SNDTIMEO, [=] { return send(fd, buf, size, MSG_NOSIGNAL); });
    if (sent < 0) {
        ZX_LOG(error, "send error(%d): %d %s\n", fd, errno, std::strerror(errno));
        return ZXNET_IO_ERROR;
    }
    return static_cast<int32_t>(sent);
}

extern "C" int32_t zxnet_api_epollSend2(int fd, const void* buf, uint32_t len, uint32_t timeoutMs) {
    const std::uint32_t size = lower_length(len);
    const auto* const bytes = static_cast<const std::uint8_t*>(buf);
    std::uint32_t offset = 0;
    while (offset < size) {
        const std::uint32_t piece = std::min(size - offset, kPieceSize);
        const void* const at = bytes == nullptr ? nullptr : bytes + offset;
        const int32_t sent = zxnet_api_epollSend(fd, at, piece, timeoutMs);
        if (sent < 0) {
            ZX_LOG(error, "Send info data error");
            return sent;
        }
        offset += static_cast<std::uint32_t>(sent);
    }
    return static_cast<int32_t>(size);
}

extern "C" int32_t zxnet_api_epollSend3(int fd, const void* buf, uint32_t len) {
    return zxnet_api_epollSend2(fd, buf, len, kDefaultTimeoutMs);
}

extern "C" int32_t zxnet_api_bindIface(int fd, const char* ifname) {
    if (ifname == nullptr) {
        ZX_LOG_PARAM("pifname");
        return -1;
    }
    if (ifname[0] == '\0') {
        return 0;
    }
    ZX_LOG(debug, "--------------pifname----%s", ifname);
    ifreq request{};
    std::memcpy(request.ifr_name, ifname, strnlen(ifname, sizeof request.ifr_name));
    if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, &request, sizeof request) < 0) {
        ZX_LOG(error, "setsockopt(SO_BINDTODEVICE) (%d,%s)", errno, std::strerror(errno));
        return -1;
    }
    const int off = 0;
    if (setsockopt(fd, SOL_SOCKET, SO_DONTROUTE, &off, sizeof off) < 0) {
        ZX_LOG(error, "setsockopt(SO_DONTROUTE)(%d,%s)", errno, std::strerror(errno));
        return -1;
    }
    return 0;
}
