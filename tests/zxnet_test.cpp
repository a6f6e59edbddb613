#include "zxnet.h"
#include "zxtime.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <tuple>
#include <vector>

#include "log_capture.hpp"
#include "loopback.hpp"
#include "zxepoll.h"

namespace {

std::string g_command;
int g_status = 0;

}  // namespace

// In place of the C library's, also for the library under test.
extern "C" [[gnu::visibility("default")]] int system(const char* command) {
    g_command = command;
    return g_status;
}

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

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

// A TCP connection: `ours` and `theirs`.
class NetTest : public testing::Test {
protected:
    NetTest() {
        EXPECT_EQ(listen(server.fd, 1), 0);
        EXPECT_EQ(zxnet_api_socketConnect(ours, server.generic(), server.size, 1000000, 1), 0);
        EXPECT_THAT(log.take().back(), HasSubstr("[DEBUG][NETWORK]connect sucess,timecast:"));
        theirs = accept(server.fd, nullptr, nullptr);
        EXPECT_EQ(theirs, ours + 1) << "a descriptor was left open";
    }
    ~NetTest() override {
        close(theirs);
        close(ours);
    }

    zx::test::LogCapture log;
    Socket server;
    int ours = socket(AF_INET, SOCK_STREAM, 0);
    int theirs = -1;
    char buf[16]{};
};

TEST_F(NetTest, TriesARefusedConnectionUntilTheDeadline) {
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

TEST_F(NetTest, PollsSeveralDescriptors) {
    ASSERT_EQ(send(theirs, "xy", 2, MSG_OOB), 2);
    ASSERT_EQ(zxnet_api_waitFd(ours, ZXNET_WAIT_READ), 1);
    pollfd_ctt fds[] = {{ours, 7, 99}, {-1, 1, 99}, {theirs, 1, 99}};
    EXPECT_EQ(zxnet_api_poll(fds, 3, 1000), 3);
    EXPECT_EQ(fds[0].revents, 7);
    EXPECT_EQ(fds[1].revents + fds[2].revents, 0);

    EXPECT_EQ(zxnet_api_poll(fds + 2, 1, 1), 0);
    EXPECT_EQ(zxnet_api_poll(fds + 1, 1, 10000), 0) << "at once";
    fds[2].fd = 1024;
    EXPECT_EQ(zxnet_api_poll(fds, 3, 0), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]Poll fd(1024) is out of range(0~1023)"));
}

TEST_F(NetTest, WaitsForADescriptorInSlices) {
    const auto start = Clock::now();
    EXPECT_EQ(zxnet_api_waitFd(ours, 0), -1);
    EXPECT_EQ(zxnet_api_waitFdTimeout(ours, 2, 1), -1);
    EXPECT_GE(Clock::now() - start, milliseconds(890)) << "seven slices and two";
    ASSERT_EQ(write(theirs, "x", 1), 1);
    EXPECT_EQ(zxnet_api_waitFd(ours, 0), 1);
    EXPECT_EQ(zxnet_api_waitFdTimeout(ours, ZXNET_WAIT_WRITE, UINT32_MAX), 1);
    EXPECT_EQ(zxnet_api_waitFdTimeout(ours, 0, 0), -1) << "the last slice does not count";
    EXPECT_EQ(zxnet_api_waitFdTimeout(1024, 0, 5), -1);
}

TEST_F(NetTest, ReceivesWhatIsThere) {
    EXPECT_EQ(zxnet_api_epollRecv(ours, buf, 16, ZXNET_NO_WAIT), ZXNET_IO_ERROR) << "nothing yet";
    ASSERT_EQ(write(theirs, "abc", 3), 3);
    EXPECT_EQ(zxnet_api_epollRecv(ours, buf, 2, 100), 2);
    EXPECT_EQ(zxnet_api_epollRecv3(ours, buf + 2, 14), 1);
    EXPECT_STREQ(buf, "abc");
    shutdown(theirs, SHUT_WR);
    ASSERT_EQ(zxnet_api_waitFd(ours, ZXNET_WAIT_READ), 1);
    EXPECT_EQ(zxnet_api_epollRecv(ours, buf, 16, ZXNET_NO_WAIT), 0);
    EXPECT_EQ(zxnet_api_epollRecv(ours, buf, 3000000000U, 1000), ZXNET_HANGUP);
    const std::string abnormal = "The TCP connection is abnormal tcpstate (8-close_wait):";
    EXPECT_THAT(
        log.take(),
        ElementsAre("[ERROR][NETWORK]recv error(" + std::to_string(ours) +
                        "): 11 Resource temporarily unavailable\n",
                    "[WARN][NETWORK]Recv len(-1294967296) is out of range(0~2147483646),set to "
                    "2147483646",
                    "[WARN][NETWORK]" + abnormal,
                    "[WARN][NETWORK]Epoll returns data quickly, but cannot read it. " + abnormal));
}

TEST_F(NetTest, SendsInPiecesOfAnEthernetPayload) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair), 0);
    std::string data(3000, 'd');
    EXPECT_EQ(zxnet_api_epollSend3(pair[0], data.data(), 3000), 3000);
    EXPECT_EQ(zxnet_api_epollSend(pair[0], data.data(), 3000, ZXNET_NO_WAIT), 3000);
    for (const ssize_t piece : {1400, 1400, 200, 3000}) {
        EXPECT_EQ(recv(pair[1], data.data(), data.size(), 0), piece);
    }
    EXPECT_EQ(zxnet_api_epollSend2(pair[0], nullptr, 0, 100), 0);
    close(pair[1]);
    EXPECT_EQ(zxnet_api_epollSend2(pair[0], data.data(), 3000, 100), ZXNET_HANGUP);
    EXPECT_EQ(zxnet_api_epollSend(pair[0], "x", 1, ZXNET_NO_WAIT), ZXNET_IO_ERROR) << "no SIGPIPE";
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][NETWORK]Send info data error",
                                        "[ERROR][NETWORK]send error(" + std::to_string(pair[0]) +
                                            "): 32 Broken pipe\n"));
    close(pair[0]);
}

TEST_F(NetTest, DescribesTcpStates) {
    char text[ZXNET_TCP_STATE_TEXT_SIZE] = "kept";
    uint8_t info[ZXNET_TCP_INFO_SIZE];
    EXPECT_EQ(zxnet_api_isTcpStateOK(ours, info, text), 1);
    EXPECT_EQ(info[0], 1);
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(zxnet_api_isTcpStateOK(server.fd, nullptr, text), 0);
    EXPECT_STREQ(text, "tcpstate (10-listen):");
    EXPECT_EQ(zxnet_api_isTcpStateOK(-1, nullptr, text), 0);
    EXPECT_STREQ(text, "getsockopt TCP_INFO failed");
    EXPECT_STREQ(zxnet_api_getTcpStateString(12, text), "tcpstate (?):unkonw");
}

TEST_F(NetTest, BindsToADevice) {
    const Socket fresh(SOCK_DGRAM);
    EXPECT_EQ(zxnet_api_bindIface(-1, ""), 0);
    if (zxnet_api_bindIface(fresh.fd, "lo") != 0) {
        GTEST_SKIP() << "binding to a device is not permitted here";
    }
    EXPECT_THAT(log.take(), ElementsAre("[DEBUG][NETWORK]--------------pifname----lo"));
    socklen_t size = sizeof buf;
    getsockopt(fresh.fd, SOL_SOCKET, SO_BINDTODEVICE, buf, &size);
    EXPECT_STREQ(buf, "lo");
}

// A timer whose signal, which restarts no call, comes every few milliseconds; the fifth one calls
// `work`.
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

TEST_F(NetTest, WaitsOnWhenSignalsComeInBetween) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer keeps signals back while a call waits";
#endif
    int pair[2], full[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, full), 0);
    std::vector<Socket> waiting(3);  // more than a backlog of 1 takes
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

TEST_F(NetTest, CancelledWaitRemovesItsDescriptor) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    int epfd = zxepoll_innerapi_open(1, "test", 1);
    std::thread waiting([&] {
        pthread_cancel(pthread_self());
        zxepoll_waitfd_timeout(epfd, ours, ZXEPOLL_WAIT_READ, 1000);
    });
    waiting.join();
    EXPECT_EQ(zxepoll_add(epfd, ours, EPOLLIN), 0);
    zxepoll_close(&epfd);
}

TEST_F(NetTest, ProbesHosts) {
    const uint16_t port = ntohs(server.address.sin_port);
    EXPECT_EQ(zxnet_api_isReachable("localhost", port), 1);
    EXPECT_EQ(zxnet_api_isReachable("no such host", port), 0);
    EXPECT_EQ(zxnet_api_isReachable("localhost", 65536U + port), 0);

    const std::string longest(103, 'h');
    const std::vector<std::tuple<std::string, int, std::string>> cases{
        {longest, 1, "ping -c 1  -s 16  -W 2 " + longest + "   > /dev/null"},
        {"fe80::1%eth0", 0, "ping -c 1  -s 16  -W 2 fe80::1%eth0   > /dev/null"},
        {longest + "h", 0, ""},
        {"", 0, ""},
        {"-f", 0, ""},
        {"a;reboot", 0, ""},
    };
    for (const auto& [host, result, command] : cases) {
        g_command.clear();
        g_status = host == longest ? 0 : 256;
        EXPECT_EQ(zxnet_api_ping(host.c_str()), result) << host;
        EXPECT_EQ(g_command, command);
    }
}

}  // namespace
