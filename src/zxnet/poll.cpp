// Waiting for descriptors with select().
#include "zxnet.h"

#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <span>

#include "internal/poll.hpp"
#include "shared/units.hpp"
#include "zxdiag/trace.hpp"
#include "zxnet/messages.hpp"

static_assert(sizeof(pollfd_ctt) == 8);
static_assert(offsetof(pollfd_ctt, events) == 4 && offsetof(pollfd_ctt, revents) == 6);

namespace {

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

    // Calls select() again when a handled signal interrupts it, and returns its result. The time
    // that handlers take counts, too.
    [[nodiscard]] int wait(timeval timeout) {
        constexpr std::int64_t kSecond = zx::kUsPerSec;
        const std::int64_t end = zx::steady_us() + zx::us_of(timeout);
        int ready = select(limit, &read, &write, &except, &timeout);
        for (bool is_over = false; ready < 0 && errno == EINTR;) {
            if (is_over) {
                *this = {};
                return 0;
            }
            const std::int64_t left = std::max<std::int64_t>(end - zx::steady_us(), 0);
            is_over = left == 0;
            timeout = {left / kSecond, left % kSecond};
            ready = select(limit, &read, &write, &except, &timeout);  // the sets are unchanged
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

std::int32_t wait_for(std::span<pollfd_ctt> records, std::int32_t timeout_ms) {
    const zx::Caller caller("zxnet_api_poll");
    FdSets sets;
    for (const pollfd_ctt& record : records) {
        if (record.fd >= FD_SETSIZE) {
            ZX_LOG_AT(caller, error, "Poll fd(%d) is out of range(0~%d)", record.fd,
                      FD_SETSIZE - 1);
            return -1;
        }
        if (record.fd >= 0) {
            sets.add(record.fd, record.events);
        }
    }
    if (sets.limit == 0) {
        return 0;
    }
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, caller.func, records.front().fd);
    const int ready = sets.wait({timeout_ms / 1000, timeout_ms % 1000 * 1000L});
    if (ready >= 0) {
        for (pollfd_ctt& record : records) {
            record.revents = record.fd >= 0 ? sets.events_of(record.fd) : std::int16_t{0};
        }
    }
    return ready;
}

std::int32_t wait_a_slice(pollfd_ctt& record) {
    return wait_for({&record, 1}, kSliceMs);
}

}  // namespace

extern "C" int32_t zxnet_api_poll(pollfd_ctt* fds, uint32_t count, int32_t timeoutMs) {
    if (count != 0 && !ZX_ARE_GIVEN({fds, "fds"})) {
        return -1;
    }
    return wait_for({fds, count}, timeoutMs);
}

extern "C" int32_t zxnet_api_waitFd(int fd, uint8_t mode) {
    pollfd_ctt record = record_of(fd, mode);
    for (int slice = kFirstSlice; slice >= kLastSlice; --slice) {
        if (const int32_t ready = wait_a_slice(record); ready != 0) {
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
        ready = wait_a_slice(record);
    } while (ready == 0 && left-- > 0);
    return left > 0 ? ready : -1;  // deliberate: the last slice does not count
}
