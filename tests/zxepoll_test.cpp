#include "zxepoll.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "log_capture.hpp"
#include "process.hpp"

namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class EpollTest : public testing::Test {
protected:
    EpollTest() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0); }
    ~EpollTest() override {
        zxepoll_close(&epfd);
        close(pair[0]);
        close(pair[1]);
    }

    zx::test::LogCapture log;
    int epfd = zxepoll_innerapi_open(1, "test", 1);
    int pair[2]{-1, -1};
};

TEST_F(EpollTest, OwnsAnInstanceFromOpenToClose) {
    EXPECT_EQ(fcntl(epfd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(zxepoll_innerapi_open(0, "test", 1), -1);
    EXPECT_EQ(zxepoll_add(epfd, pair[0], EPOLLIN), 0);
    EXPECT_EQ(zxepoll_mod(epfd, pair[0], EPOLLOUT), 0);
    epoll_event event{};
    EXPECT_EQ(zxepoll_wait(epfd, &event, 1), 1);
    EXPECT_EQ(event.data.fd, pair[0]);
    EXPECT_EQ(zxepoll_close(&epfd), 0);
    EXPECT_EQ(zxepoll_del(epfd, pair[0], 0), 1);
}

TEST_F(EpollTest, WaitsForOneDescriptor) {
    EXPECT_EQ(zxepoll_waitfd_timeout(epfd, pair[0], ZXEPOLL_WAIT_WRITE, 100), 0);
    ASSERT_EQ(write(pair[1], "x", 1), 1);
    EXPECT_EQ(zxepoll_waitfd_timeout(epfd, pair[0], 2, 100), 0);
    shutdown(pair[1], SHUT_RDWR);
    EXPECT_EQ(zxepoll_waitfd_timeout(epfd, pair[0], 0, 100), ZXEPOLL_HANGUP)
        << "with a byte to read";
}

TEST_F(EpollTest, AnIdleDescriptorCostsAWholePass) {
    const auto start = Clock::now();
    EXPECT_EQ(zxepoll_waitfd_timeout(epfd, pair[0], 0, 0), ZXEPOLL_TIMEOUT);
    EXPECT_GE(Clock::now() - start, milliseconds(990));
    EXPECT_EQ(zxepoll_add(epfd, pair[1], EPOLLOUT), 0);
    // On a busy machine any one wait may take longer than it asks for.
    EXPECT_TRUE(zx::test::comes_true([&] {
        const auto begin = Clock::now();
        EXPECT_EQ(zxepoll_waitfd_timeout(epfd, pair[0], 0, 20), ZXEPOLL_TIMEOUT);
        return Clock::now() - begin < milliseconds(800);
    })) << "beside a busy one";
}

struct App {
    std::vector<int> fds;
    int epfd = -1;
    std::vector<uint32_t> asked{};
    std::vector<int> reads{}, writes{};
};

int32_t fd_at(void* context, uint32_t index) {
    auto& app = *static_cast<App*>(context);
    app.asked.push_back(index);
    return app.fds[index];
}

int32_t on_read(void* context, int32_t fd) {
    auto& app = *static_cast<App*>(context);
    app.reads.push_back(fd);
    return zxepoll_del(app.epfd, fd, 0);
}

int32_t on_write(void* context, int32_t fd) {
    static_cast<App*>(context)->writes.push_back(fd);
    return -1;
}

TEST_F(EpollTest, DispatchesForOneSecond) {
    int broken[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, broken), 0);
    close(broken[1]);
    ASSERT_EQ(write(pair[1], "x", 1), 1);
    App app{.fds = {pair[0], -1, pair[1], broken[0]}};
    app.epfd = zxepoll_appapi_init(4, &app, EPOLLIN | EPOLLOUT, fd_at);
    const auto start = Clock::now();
    zxepoll_appapi_dataread(app.epfd, 4, &app, on_read, on_write);
    EXPECT_GE(Clock::now() - start, milliseconds(990));
    EXPECT_THAT(app.reads, ElementsAre(pair[0])) << "which could be written too";
    EXPECT_THAT(app.writes, AllOf(Not(IsEmpty()), Each(pair[1])));
    EXPECT_THAT(log.take(), AllOf(Not(IsEmpty()), Each("[INFO][EPOLL]orb-zxepollhup")));
    EXPECT_EQ(zxepoll_appapi_deinit(app.epfd, 4, &app, fd_at), 0);
    EXPECT_EQ(fcntl(app.epfd, F_GETFD), -1);
    EXPECT_THAT(app.asked, ElementsAre(0, 1, 2, 3, 0, 1, 2, 3));
    EXPECT_EQ(zxepoll_appapi_init(UINT32_MAX, &app, EPOLLIN, fd_at), -1) << "one more is 0";
    close(broken[0]);
}

}  // namespace
