// What the models of the fuzz targets cannot show: threads that are cancelled or held up.
#include "zxfifo.h"

#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "child.hpp"

namespace {

TEST(FifoTest, CancelledTransferGivesTheLockBack) {
#ifdef ZX_ASAN
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
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(16, "ring");
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, worker, fifo), 0);
    pthread_cancel(thread);
    pthread_join(thread, nullptr);
    ASSERT_STREQ(fifo->lock.holder, "nolock");
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 0);
    zxfifo_api_blockDeinit(&fifo);
}

std::atomic<int> g_stuck{0};  // 1: a signal holds the reader up; 2: it may go on

// A reader is held up in the middle of its walk, as when threads of a higher priority keep it from
// running.
TEST(SharedListTest, DroppingNodesSleepsWhileAReaderIsHeldUp) {
    zxsharelist_ctt list{};
    list.keep_seconds = 1000;
    zxfifo_api_shareListInit(&list, "l");
    for (int i = 0; i < 5000; ++i) {
        zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(8, "n"));
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
    zxfifo_api_shareListDeinit(&list);
}

}  // namespace
