#include "zxnet.h"
#include "zxtime.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <functional>
#include <vector>

#include "log_capture.hpp"
#include "loopback.hpp"
#include "zxepoll.h"

namespace {

using testing::EndsWith;
using Clock = std::chrono::steady_clock;

// A socket on the loopback interface, bound to a free port.
struct Socket {
    explicit Socket(int type = SOCK_STREAM) : fd(socket(AF_INET, type, 0)) {
        EXPECT_EQ(bind(fd, generic(), size), 0);
        EXPECT_EQ(getsockname(fd, generic(), &size), 0);
    }
    ~Socket() { close(fd); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address); }

    int fd;
    sockaddr_in address = zx::test::loopback(0);
    socklen_t size = sizeof address;
};

TEST(NetTest, TriesARefusedConnectionUntilTheDeadline) {
    zx::test::LogCapture log;
    Socket closed;  // bound but not listening
    const auto last_line = [&](uint64_t timeout_us, uint8_t log_flag) {
        const Socket own;
        const auto start = Clock::now();
        EXPECT_EQ(
            zxnet_api_socketConnect(own.fd, closed.generic(), closed.size, timeout_us, log_flag),
            -1);
        EXPECT_GE(Clock::now() - start, std::chrono::microseconds(timeout_us) * 9 / 10);
        return log.take().back();
    };
    EXPECT_THAT(last_line(40000, 1), EndsWith("tcpi_state:7-tcpstate (7-close):,timeout:40000"));
    EXPECT_THAT(last_line(40000, 0), EndsWith("TCP connection is abnormal tcpstate (7-close):"));
    EXPECT_EQ(last_line(0, 1),
              "[WARN][NETWORK]tryconnect num(1),socketconnect failed,"
              "tcpi_state:0-tcpstate (?):unkonw,timeout:0");
}

// A timer whose signal interrupts calls every few milliseconds. Interrupted calls are not
// restarted. The fifth signal calls `work`.
class Interruptions {
public:
    explicit Interruptions(const std::function<void()>& work) {
        g_work = &work;
        g_left = 5;
        struct sigaction action {};
        action.sa_handler = [](int) {
            const int kept = errno;
            g_left = g_left - 1;
            if (g_left == 0) {
                (*g_work)();
            }
            errno = kept;
        };
        sigaction(SIGALRM, &action, nullptr);
        set_timer(3000);
    }
    ~Interruptions() {
        set_timer(0);
        std::signal(SIGALRM, SIG_DFL);
    }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

private:
    static void set_timer(suseconds_t us) {
        const itimerval timer{{0, us}, {0, us}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
    inline static const std::function<void()>* g_work = nullptr;
    inline static volatile int g_left = 0;
};

TEST(NetTest, KeepsWaitingWhenSignalsArrive) {
#ifdef ZX_TSAN
    GTEST_SKIP() << "the thread sanitizer keeps signals back while a call waits";
#endif
    zx::test::LogCapture log;
    char buf[16];
    int pair[2], full[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, full), 0);
    Socket server;
    EXPECT_EQ(listen(server.fd, 1), 0);
    std::vector<Socket> waiting(3);  // more than fit into a backlog of 1
    for (std::size_t i = 0; i < 2; ++i) {
        zxnet_api_socketNonblock(waiting[i].fd, 1);
        (void)connect(waiting[i].fd, server.generic(), server.size);
    }
    pollfd_ctt record{pair[0], ZXNET_POLL_READ, 0};
    const int epfd = zxepoll_innerapi_open(1, "test", 1);
    const auto put = [&] { (void)!write(pair[1], "x", 1); };
    const auto take = [&] {
        while (recv(full[1], buf, sizeof buf, MSG_DONTWAIT) > 0) {
        }
    };
    const auto send_to_full = [&](uint32_t timeout_ms) {
        while (send(full[0], "x", 1, MSG_DONTWAIT) == 1) {
        }
        return zxnet_api_epollSend(full[0], "x", 1, timeout_ms);
    };
    const auto set_timeout = [](int fd, int option, suseconds_t us) {
        const timeval timeout{0, us};
        setsockopt(fd, SOL_SOCKET, option, &timeout, sizeof timeout);
    };
    const auto receive_within = [&](suseconds_t us) {
        set_timeout(pair[0], SO_RCVTIMEO, us);
        return zxnet_api_epollRecv(pair[0], buf, 9, ZXNET_NO_WAIT);
    };
    const auto send_within = [&](suseconds_t us) {
        set_timeout(full[0], SO_SNDTIMEO, us);
        return send_to_full(ZXNET_NO_WAIT);
    };
    const auto poll_for_half_a_second = [&] {
        const uint64_t start = zxtime_api_us();
        return zxnet_api_poll(&record, 1, 500) == 0 && zxtime_api_us() - start < 850000 ? 0 : -1;
    };
    const auto let_in = [&] { close(accept(server.fd, nullptr, nullptr)); };
    const struct {
        const char* call;
        std::function<int32_t()> answer;
        int32_t expected;
        std::function<void()> at_last;
    } cases[] = {
        {"poll", [&] { return zxnet_api_poll(&record, 1, 5000); }, 1, put},
        {"poll", [&] { return zxnet_api_poll(&record, 1, 100); }, 0, [] {}},
        {"poll, a long handler", poll_for_half_a_second, 0, [] { usleep(500000); }},
        {"waitFd", [&] { return zxnet_api_waitFd(pair[0], 0); }, 1, put},
        {"waitFdTimeout", [&] { return zxnet_api_waitFdTimeout(pair[0], 0, 50); }, 1, put},
        {"waitfd_timeout", [&] { return zxepoll_waitfd_timeout(epfd, pair[0], 0, 5000); }, 0, put},
        {"epollRecv", [&] { return zxnet_api_epollRecv(pair[0], buf, 9, 5000); }, 1, put},
        {"epollRecv", [&] { return zxnet_api_epollRecv(pair[0], buf, 9, ZXNET_NO_WAIT); }, 1, put},
        {"SO_RCVTIMEO", [&] { return receive_within(50000); }, ZXNET_IO_ERROR, [] {}},
        {"epollSend", [&] { return send_to_full(5000); }, 1, take},
        {"epollSend", [&] { return send_to_full(ZXNET_NO_WAIT); }, 1, take},
        {"SO_SNDTIMEO", [&] { return send_within(50000); }, ZXNET_IO_ERROR, [] {}},
        {"socketConnect",
         [&] {
             return zxnet_api_socketConnect(waiting[2].fd, server.generic(), server.size, 0, 1);
         },
         0, let_in},
    };
    for (const auto& c : cases) {
        const Interruptions interruptions(c.at_last);
        EXPECT_EQ(c.answer(), c.expected) << c.call;
        (void)!recv(pair[0], buf, sizeof buf, MSG_DONTWAIT);
    }
    for (const int fd : {pair[0], pair[1], full[0], full[1], epfd}) {
        close(fd);
    }
}

TEST(NetTest, CancelledWaitRemovesItsDescriptor) {
#ifdef ZX_ASAN
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    const Socket socket(SOCK_DGRAM);
    int epfd = zxepoll_innerapi_open(1, "test", 1);
    std::thread waiting([&] {
        pthread_cancel(pthread_self());
        zxepoll_waitfd_timeout(epfd, socket.fd, ZXEPOLL_WAIT_READ, 1000);
    });
    waiting.join();
    EXPECT_EQ(zxepoll_add(epfd, socket.fd, EPOLLIN), 0);
    zxepoll_close(&epfd);
}

}  // namespace
