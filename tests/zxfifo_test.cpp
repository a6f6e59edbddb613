// What the models of the fuzz targets do not see: texts, oddities and threads.
#include "zxfifo.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "child.hpp"
#include "log_capture.hpp"
#include "zxlog.h"

namespace {

std::uint64_t g_now = 0;

}  // namespace

// Stands in for the library's clock.
extern "C" uint64_t zxlog_api_us(void) {
    return g_now;
}

namespace {

using testing::ElementsAre;

constexpr std::uint64_t kSecond = 1000000;

class FifoTest : public testing::Test {
protected:
    ~FifoTest() override {
        const zxfifoblock_ctt* const before = fifo;
        zxfifo_api_blockDeinit(&fifo);
        EXPECT_EQ(fifo, before) << "the caller clears it";
    }

    zx::test::LogCapture log;
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(16, "ring");
};

TEST_F(FifoTest, CancelledTransferGivesTheLockBack) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    const auto worker = [](void* argument) -> void* {
        const auto wait = [](void*, std::uint8_t*, std::int32_t) -> std::int32_t {
            for (;;) {
                pthread_testcancel();
            }
        };
        zxfifo_api_blockIn(static_cast<zxfifoblock_ctt*>(argument), argument, 4, wait);
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, worker, fifo), 0);
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    ASSERT_STREQ(fifo->lock.holder, "nolock");
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 0);
}

TEST_F(FifoTest, AMessageThatHasNoRoomPutsItOutOfStep) {
    char bytes[2];
    EXPECT_STREQ(fifo->lock.name, "zxfifo_lock_ring");
    zxfifo_api_blockLenIn(fifo, "abc", 3);
    EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, bytes, 2, "reader", 7), -1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][FIFO_STRU]ring:buf_size(2) too small,must be large than(3),"
                            "spaceused:3(func, line:reader,7)"));
    EXPECT_THAT(log.take_dumps(), ElementsAre("len_buf:00000003"));
    EXPECT_EQ(zxfifo_innerapi_blockReset(fifo), 1);
    EXPECT_EQ(zxfifo_innerapi_blockSpaceUsed(fifo), 0);
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 3) << "the snapshot is the caller's to refresh";
}

TEST_F(FifoTest, RefusesWhatIsNoMessageAndNoNode) {
    zxfifoblock_ctt* none = nullptr;
    zxfifolist_ctt* no_node = nullptr;
    zxfifo_api_blockDeinit(&none);
    EXPECT_EQ(zxfifo_api_blockLenIn(fifo, "x", -1), -1);
    zxfifo_api_listDemalloc(&no_node);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][FIFO_STRU]Error data size:-1",
                                        "[ERROR][FIFO_STRU]Error param ###(*ppzxfifolist_ctt)"));
}

struct SharedList : zxsharelist_ctt {
    explicit SharedList(std::uint32_t seconds = 1) : zxsharelist_ctt{} {
        keep_seconds = seconds;
        EXPECT_EQ(zxfifo_api_shareListInit(this, "l"), 0);
        EXPECT_STREQ(lock.name, "zxfifo_lock_l");
    }
    ~SharedList() { EXPECT_EQ(zxfifo_api_shareListDeinit(this), 0); }
    SharedList(const SharedList&) = delete;
    SharedList& operator=(const SharedList&) = delete;

    void add() {
        zxfifo_api_shareListIn(this, zxfifo_api_shareListMalloc(8, "n"));
        EXPECT_EQ(newest, g_now);
    }
};

TEST(SharedListTest, KeepTimeOverflowsAsThirtyTwoBits) {
    const struct {
        std::uint32_t keep_seconds;
        std::uint64_t age;
        std::uint32_t left;
    } cases[] = {
        {2147, 2147 * kSecond, 0},
        {2148, UINT32_MAX, 1},
        {4295, 32703, 1},
        {4295, 32704, 0},
    };
    for (const auto& c : cases) {
        SharedList list(c.keep_seconds);
        list.add();
        g_now += c.age;
        zxfifo_api_shareListDropTimeout(&list);
        EXPECT_EQ(zxfifo_api_shareListTotalNum(&list), c.left) << c.keep_seconds << " " << c.age;
    }
}

std::atomic<int> g_stuck{0};  // 1: a signal holds the reader up; 2: it may go on

// A reader that does not get on in the middle of its walk, as when threads of a higher priority
// keep it from running.
TEST(SharedListTest, WhoDropsSleepsWhileAReaderIsHeldUp) {
    SharedList list;
    for (int i = 0; i < 5000; ++i) {
        list.add();
    }
    std::atomic<bool> is_over{false};
    std::thread reader([&] {
        for (std::uint64_t since = UINT64_MAX; !is_over; --since) {
            zxfifo_api_shareListRead(&list, since);
        }
    });
    signal(SIGUSR1, [](int) {
        for (g_stuck = 1; g_stuck != 2;) {
            usleep(1000);
        }
    });
    pthread_kill(reader.native_handle(), SIGUSR1);
    while (g_stuck != 1) {
        usleep(1000);
    }
    EXPECT_EQ(zx::test::in_child([&] {
                  alarm(10);
                  zxfifo_api_shareListReset(&list);
                  return std::string("a child has no such reader");
              }),
              "a child has no such reader");
    std::thread helper([] {
        usleep(500000);
        g_stuck = 2;
    });
    const auto used_ms = [] {
        timespec used{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        return used.tv_sec * 1000 + used.tv_nsec / 1000000;
    };
    const auto before = used_ms();
    zxfifo_api_shareListReset(&list);
    EXPECT_LT(used_ms() - before, 60);
    helper.join();
    is_over = true;
    reader.join();
    signal(SIGUSR1, SIG_DFL);
}

}  // namespace
