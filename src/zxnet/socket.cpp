// Sockets: receiving and sending with a wait, and options.
#include "zxnet.h"

#include <fcntl.h>
#include <net/if.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "internal/cancel.hpp"
#include "internal/length.hpp"
#include "internal/poll.hpp"
#include "zxdiag/trace.hpp"
#include "zxepoll.h"
#include "zxnet/messages.hpp"
#include "zxtime.h"

static_assert(sizeof(ifreq) == 40);

namespace {

constexpr std::uint32_t kPieceSize = 1400;
constexpr std::uint32_t kDefaultTimeoutMs = 1000;
constexpr int kLastStandardFd = 2;

// Waits on an epoll instance that is closed before the data is touched. Returns the code of the
// wait.
std::int32_t wait_ready(int fd, std::uint8_t mode, std::uint32_t timeout_ms,
                        zx::Caller caller = {}) {
    return zx::with_fd(zxepoll_innerapi_open(2, caller.func, caller.line), [=](int epfd) {
        return zxepoll_waitfd_timeout(epfd, fd, mode, timeout_ms);
    });
}

// Receives or sends with `call`, which waits unless the socket is nonblocking.
template <typename Call>
ssize_t transfer(int fd, int option, const Call& call, zx::Caller caller = {}) {
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, caller.func, fd);
    return zx::uninterrupted(fd, option, call);
}

// Decides what 0 received bytes mean after a wait that began at `start`.
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

extern "C" int32_t zxnet_api_isVaildFd(int fd) {
    return fd > kLastStandardFd ? 1 : 0;
}

extern "C" int32_t zxnet_api_socketNonblock(int fd, int8_t on) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0) {
        return -1;
    }
    return fcntl(fd, F_SETFL, on == 1 ? flags | O_NONBLOCK : flags & ~O_NONBLOCK);
}

extern "C" int32_t zxnet_api_epollRecv(int fd, void* buf, uint32_t len, uint32_t timeoutMs) {
    if (!ZX_ARE_GIVEN({buf, "pbuf"})) {
        return ZXNET_NO_BUF;
    }
    const std::uint32_t size = zx::limited(len, "Recv", kTag);
    const bool waits = timeoutMs != ZXNET_NO_WAIT;
    const std::uint64_t start = waits ? zxtime_api_us() : 0;
    if (waits) {
        const std::int32_t result = wait_ready(fd, ZXNET_WAIT_READ, timeoutMs);
        if (result < 0) {
            return result;
        }
    }
    const ssize_t received = transfer(fd, SO_RCVTIMEO, [=] { return recv(fd, buf, size, 0); });
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
    if (!ZX_ARE_GIVEN({buf, "pbuf"})) {
        return ZXNET_NO_BUF;
    }
    const std::uint32_t size = zx::limited(len, "Recv", kTag);
    if (timeoutMs != ZXNET_NO_WAIT) {
        const std::int32_t result = wait_ready(fd, ZXNET_WAIT_WRITE, timeoutMs);
        if (result < 0) {
            return result;
        }
    }
    const ssize_t sent =
        transfer(fd, SO_SNDTIMEO, [=] { return send(fd, buf, size, MSG_NOSIGNAL); });
    if (sent < 0) {
        ZX_LOG(error, "send error(%d): %d %s\n", fd, errno, std::strerror(errno));
        return ZXNET_IO_ERROR;
    }
    return static_cast<int32_t>(sent);
}

extern "C" int32_t zxnet_api_epollSend2(int fd, const void* buf, uint32_t len, uint32_t timeoutMs) {
    const std::uint32_t size = zx::limited(len, "Recv", kTag);
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
    if (!ZX_ARE_GIVEN({ifname, "pifname"})) {
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
