// Connecting, and finding out whether a host can be reached.
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

#include "internal/cancel.hpp"
#include "internal/poll.hpp"
#include "internal/safe_name.hpp"
#include "shared/units.hpp"
#include "zxdiag/trace.hpp"
#include "zxepoll.h"
#include "zxnet.h"
#include "zxnet/messages.hpp"
#include "zxnet/resolve.hpp"
#include "zxt.h"
#include "zxtime.h"

namespace {

constexpr std::uint64_t kMaxPauseUs = 10000;
constexpr std::uint64_t kReachableUs = zx::kUsPerSec;
constexpr std::uint16_t kHttpPort = 80;
constexpr std::size_t kPingSize = 128;

void report_failure(int attempts, std::uint8_t state, std::uint64_t timeout_us, zx::Caller caller) {
    char state_text[ZXNET_TCP_STATE_TEXT_SIZE];
    char number[ZXLOG_SCRATCH_SIZE];
    zxnet_api_getTcpStateString(state, state_text);
    zxlog_innerapi_num2str(number, timeout_us);
    ZX_LOG_AT(caller, warning,
              "tryconnect num(%d),socketconnect failed,tcpi_state:%d-%s,timeout:%s", attempts,
              state, state_text, number);
}

std::int32_t connect_by(std::uint64_t start, std::uint64_t timeout_us, int fd, const sockaddr* addr,
                        socklen_t len, bool reports, zx::Caller caller) {
    const auto pause_us = static_cast<unsigned>(std::min(timeout_us / 10, kMaxPauseUs));
    std::uint8_t info[ZXNET_TCP_INFO_SIZE]{};
    int attempts = 0;
    const zx::diag::TracedWait traced(zx::diag::Span::socket_wait, caller.func, fd);
    // When an interrupted connect() is called again, Linux continues it.
    while (zx::uninterrupted(fd, SO_SNDTIMEO, [=] { return connect(fd, addr, len); }) != 0) {
        ++attempts;
        if (timeout_us == 0 || timeout_us < zxtime_api_us() - start) {
            if (reports) {
                report_failure(attempts, info[0], timeout_us, caller);
            }
            return -1;
        }
        if (zxnet_api_isTcpStateOK(fd, info, nullptr) == 1) {
            break;
        }
        usleep(pause_us);
    }
    return 0;
}

}  // namespace

extern "C" int32_t zxnet_api_socketConnect(int fd, const struct sockaddr* addr, socklen_t len,
                                           uint64_t timeoutUs, uint8_t logFlag) {
    if (!ZX_ARE_GIVEN({addr, "addr"})) {
        return -1;
    }
    if (timeoutUs != 0 && zxnet_api_socketNonblock(fd, 1) < 0) {
        ZX_LOG(error, "zxnet_api_socketNonblock %d failed", fd);
        return -1;
    }
    const std::uint64_t start = zxtime_api_us();
    const zx::Caller here;
    const std::int32_t result =
        zx::with_fd(zxepoll_innerapi_open(2, here.func, here.line), [=](int /*epfd*/) {
            return connect_by(start, timeoutUs, fd, addr, len, logFlag == 1, here);
        });
    if (result != 0) {
        return result;
    }
    char number[ZXLOG_SCRATCH_SIZE];
    ZX_LOG(debug, "connect sucess,timecast:%s us",
           zxlog_innerapi_num2str(number, zxtime_api_us() - start));
    return 0;
}

extern "C" int32_t zxnet_api_isReachable(const char* host, uint32_t port) {
    if (!ZX_ARE_GIVEN({host, "pingaddr"})) {
        return 0;
    }
    if (port > UINT16_MAX && port != ZXNET_PORT_DEFAULT) {
        ZX_LOG_PARAM("port");
        return 0;
    }
    std::optional<sockaddr_in> address = zx::net::resolve_ipv4(host);
    if (!address) {
        return 0;
    }
    address->sin_port = htons(port == ZXNET_PORT_DEFAULT ? kHttpPort : static_cast<uint16_t>(port));
    return zx::with_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), [&](int fd) {
        const auto* const generic = reinterpret_cast<const sockaddr*>(&*address);
        return zxnet_api_socketConnect(fd, generic, sizeof *address, kReachableUs, 0) == 0 ? 1 : 0;
    });
}

extern "C" int32_t zxnet_api_ping(const char* host) {
    if (host == nullptr || host[0] == '\0') {
        return 0;
    }
    char command[kPingSize + ZXT_CMD_ROOM]{};
    const int length = std::snprintf(command, kPingSize, "ping -c 1  -s 16  -W 2 %s ", host);
    if (!zx::is_safe_host(host) || !zx::is_whole(length, kPingSize)) {
        ZX_LOG(error, "Host(%s) is not fit for a command", host);
        return 0;
    }
    return static_cast<std::int8_t>(zxt_innerapi_cmdRet(command));
}
