#include "zxepoll.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "internal/args.hpp"
#include "internal/cancel.hpp"
#include "internal/log.hpp"
#include "shared/units.hpp"
#include "zxdiag/trace.hpp"
#include "zxtime.h"

namespace {

constexpr char kTag[] = "EPOLL";
constexpr int kWaitMs = 500;
constexpr int kPassMs = 1000;
constexpr std::uint64_t kPeriodUs = zx::kUsPerSec;
constexpr unsigned kPauseUs = 1000;
constexpr std::uint32_t kMaxEvents = 1024;  // in one pass; they are on the stack

int control(int epfd, int operation, int fd, std::uint32_t mask) {
    epoll_event event{};
    event.events = mask;
    event.data.fd = fd;
    return epoll_ctl(epfd, operation, fd, &event);
}

std::uint32_t wanted_mask(std::uint8_t mode) {
    return mode == ZXEPOLL_WAIT_WRITE ? EPOLLOUT : EPOLLIN;
}

void dispatch(const epoll_event& event, void* context, zxepoll_io_cb readcb, zxepoll_io_cb writecb,
              zx::Caller caller = {}) {
    if ((event.events & EPOLLHUP) != 0) {
        ZX_LOG_AT(caller, info, "orb-zxepollhup");
    } else if ((event.events & EPOLLERR) != 0) {
        ZX_LOG_AT(caller, info, "orb-zxepollerr");
    } else if ((event.events & EPOLLIN) != 0) {
        if (readcb != nullptr) {
            readcb(context, event.data.fd);
        }
    } else if ((event.events & EPOLLOUT) != 0 && writecb != nullptr) {
        writecb(context, event.data.fd);
    }
}

}  // namespace

extern "C" int zxepoll_innerapi_open(int size, const char* /*caller*/, int /*line*/) {
    if (size <= 0) {
        errno = EINVAL;
        return -1;
    }
    return epoll_create1(EPOLL_CLOEXEC);
}

extern "C" int32_t zxepoll_add(int epfd, int fd, uint32_t mask) {
    if (control(epfd, EPOLL_CTL_ADD, fd, mask) < 0) {
        ZX_LOG(error, "epoll_ctl add failed: %d %s", errno, std::strerror(errno));
        return -1;
    }
    return 0;
}

extern "C" int32_t zxepoll_mod(int epfd, int fd, uint32_t mask) {
    if (control(epfd, EPOLL_CTL_MOD, fd, mask) < 0) {
        ZX_LOG(error, "epoll_ctl mod failed: %d %s", errno, std::strerror(errno));
        return -1;
    }
    return 0;
}

extern "C" int32_t zxepoll_del(int epfd, int fd, uint32_t mask) {
    if (epfd == -1) {
        return 1;
    }
    if (control(epfd, EPOLL_CTL_DEL, fd, mask) < 0) {
        ZX_LOG(error, "epoll_ctl del failed: %d %s", errno, std::strerror(errno));
        return -1;
    }
    return 0;
}

extern "C" int32_t zxepoll_wait(int epfd, struct epoll_event* ev, int max) {
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, __func__, epfd);
    return epoll_wait(epfd, ev, max, kWaitMs);
}

extern "C" int32_t zxepoll_wait_timeout(int epfd, struct epoll_event* ev, int max, int ms) {
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, __func__, epfd);
    return epoll_wait(epfd, ev, max, ms);
}

extern "C" int32_t zxepoll_close(int* epfd) {
    if (!ZX_ARE_GIVEN({epfd, "epfd"})) {
        return -1;
    }
    if (*epfd >= 0) {
        zx::close_uncancelled(*epfd);
    }
    *epfd = -1;
    return 0;
}

extern "C" int32_t zxepoll_waitfd_timeout_noopt(int epfd, int fd, uint8_t mode, uint32_t ms) {
    const std::uint32_t wanted = wanted_mask(mode);
    const std::uint32_t budget_us = ms * 1000U;  // 32 bits, as the interface says
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, __func__, fd);
    const std::uint64_t start = zxtime_api_us();
    while (true) {
        epoll_event events[2]{};
        const int count = epoll_wait(epfd, events, 2, kPassMs);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd != fd) {
                continue;
            }
            if ((events[i].events & (EPOLLHUP | EPOLLERR)) != 0) {
                return ZXEPOLL_HANGUP;
            }
            if ((events[i].events & wanted) != 0) {
                return 0;
            }
        }
        if (zxtime_api_us() - start > budget_us) {
            return ZXEPOLL_TIMEOUT;
        }
        usleep(budget_us / 100);
    }
}

extern "C" int32_t zxepoll_waitfd_timeout(int epfd, int fd, uint8_t mode, uint32_t ms) {
    const std::uint32_t wanted = wanted_mask(mode);
    if (zxepoll_add(epfd, fd, wanted) < 0) {
        return ZXEPOLL_FAILED;
    }
    const int32_t result =
        zx::undone_if_cancelled([=] { return zxepoll_waitfd_timeout_noopt(epfd, fd, mode, ms); },
                                [=] { control(epfd, EPOLL_CTL_DEL, fd, 0); });
    if (zxepoll_del(epfd, fd, wanted) < 0 && result != ZXEPOLL_HANGUP) {
        return ZXEPOLL_FAILED;
    }
    return result;
}

extern "C" int32_t zxepoll_appapi_init(uint32_t count, void* context, uint32_t mask,
                                       zxepoll_getfd_cb cb) {
    if (!ZX_ARE_GIVEN({cb, "cb"})) {
        return -1;
    }
    const int epfd = zxepoll_innerapi_open(static_cast<int>(count + 1), "zxepoll_appapi_init", 127);
    if (epfd < 0) {
        ZX_LOG(error, "[Error] Orb zxepoll_open failed");
        return -1;
    }
    const auto register_all = [=] {
        for (std::uint32_t i = 0; i < count; ++i) {
            if (const int fd = cb(context, i); fd > 0) {
                zxepoll_add(epfd, fd, mask);
            }
        }
        return epfd;
    };
    return zx::undone_if_cancelled(register_all, [=] { zx::close_uncancelled(epfd); });
}

extern "C" int32_t zxepoll_appapi_deinit(int epfd, uint32_t count, void* context,
                                         zxepoll_getfd_cb cb) {
    if (!ZX_ARE_GIVEN({cb, "cb"})) {
        return -1;
    }
    return zx::with_fd(epfd, [=](int /*closed then*/) {
        for (std::uint32_t i = 0; i < count; ++i) {
            cb(context, i);
        }
        return 0;
    });
}

extern "C" void zxepoll_appapi_dataread(int epfd, uint32_t count, void* context,
                                        zxepoll_io_cb readcb, zxepoll_io_cb writecb) {
    epoll_event events[kMaxEvents];
    const int max = static_cast<int>(std::min(count, kMaxEvents - 1) + 1);
    const std::uint64_t start = zxtime_api_us();
    while (zxtime_api_us() - start < kPeriodUs) {
        const int ready = zxepoll_wait(epfd, events, max);
        for (int i = 0; i < ready; ++i) {
            dispatch(events[i], context, readcb, writecb);
        }
        usleep(kPauseUs);
    }
}
