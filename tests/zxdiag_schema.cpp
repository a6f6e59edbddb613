// A program that has something for each key of each answer, under names that are no UTF-8. It runs
// until it is killed.
#include <sys/epoll.h>
#include <unistd.h>

#include <cstdlib>
#include <latch>
#include <string>
#include <thread>

#include "zxdiag.h"
#include "zxepoll.h"
#include "zxfifo.h"
#include "zxlock.h"
#include "zxlog.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

zxlock_ctt g_locks[3];
std::latch g_all_hold(3);

// Three threads, each of which waits for what the next one holds.
void hang(int number) {
    zxthread_api_setName("hangs\xff");
    zxlock_api_obtain(&g_locks[number], "holds\xff", 1);
    g_all_hold.arrive_and_wait();
    zxlock_api_obtain(&g_locks[(number + 1) % 3], "wants\xff", 2);
}

void* work(void* is_short) {
    while (is_short == nullptr) {
        pause();
    }
    return nullptr;
}

[[noreturn]] void be_busy(zxlock_ctt& lock) {
    char name[] = "fifo\xff";
    zxfifoblock_ctt* const fifo = zxfifo_api_blockInit(4096, name);
    const int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    for (;;) {
        char message[100] = {};
        zxlock_api_obtain(&lock, "busy", 1);
        zxfifo_api_blockIn(fifo, message, sizeof message, nullptr);
        zxfifo_api_blockOut(fifo, message, sizeof message, nullptr);
        zxlock_api_release(&lock, "busy", 2);
        epoll_event event{};
        zxepoll_wait_timeout(epfd, &event, 1, 50);
        for (int i = 0; i < 6000; ++i) {  // more than are kept
            zxdiag_log_keep("[2024-05-01 08:30:00.250][DEBUG][BUSY]\xff %d", i);
        }
    }
}

}  // namespace

int main() {
    zxmem_api_init(1);
    for (zxlock_ctt& lock : g_locks) {
        zxlock_api_init(&lock, "lock\xff");
    }
    (void)zxmem_api_malloc(1000, "held\xff", "file\xff", 7);
    for (int i = 0; i < 3; ++i) {
        std::thread(hang, i).detach();
    }
    static zxthread_ctt workers[2];
    zxthread_api_create(&workers[0], "works\xff", work, nullptr);
    zxthread_api_create(&workers[1], "has ended", work, workers);
    static zxsharelist_ctt list;
    zxfifo_api_shareListInit(&list, "list\xff");
    zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(1, "node"));
    zxlock_ctt busy{};
    zxlock_api_init(&busy, (std::string(38, 'x') + "\u00e4").c_str());  // a trace cuts it
    be_busy(busy);
}
