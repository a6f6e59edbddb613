// Waiting for a descriptor that is ready, compared with the bare system calls.
#include "zxepoll.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "support.hpp"

namespace {

void wait_library(int epfd, int fd) {
    zxepoll_waitfd_timeout(epfd, fd, ZXEPOLL_WAIT_READ, 1000);
}

void wait_system_calls(int epfd, int fd) {
    epoll_event event{.events = EPOLLIN, .data = {.fd = fd}};
    epoll_ctl(epfd, EPOLL_CTL_ADD, fd, &event);
    epoll_wait(epfd, &event, 1, 1000);
    epoll_ctl(epfd, EPOLL_CTL_DEL, fd, &event);
}

void wait_poll(int, int fd) {
    pollfd waiting{.fd = fd, .events = POLLIN, .revents = 0};
    poll(&waiting, 1, 1000);
}

void waits(benchmark::State& state, void (*wait)(int epfd, int fd)) {
    const int ready = eventfd(1, EFD_CLOEXEC);
    int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    for ([[maybe_unused]] auto _ : state) {
        wait(epfd, ready);
    }
    zxepoll_close(&epfd);
    close(ready);
}
BENCHMARK_CAPTURE(waits, a, wait_library)->Name("waitfd_timeout/library");
BENCHMARK_CAPTURE(waits, b, wait_system_calls)->Name("waitfd_timeout/system-calls");
BENCHMARK_CAPTURE(waits, c, wait_poll)->Name("waitfd_timeout/poll");

}  // namespace
