// Many threads use what the library shares between threads.
#include <gmock/gmock.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <semaphore>
#include <span>

#include "log_capture.hpp"
#include "scenario.hpp"
#include "zxfifo.h"
#include "zxlock.h"
#include "zxlog.h"
#include "zxmem.h"
#include "zxthread.h"

namespace {

std::atomic<std::uint64_t> g_now{1};

}  // namespace

// This takes the place of the library's clock.
extern "C" uint64_t zxlog_api_us(void) {
    return g_now;
}

namespace {

using zx::test::run_beside;
using zx::test::run_threads;

class Stress : public testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(wrong, 0);
        EXPECT_THAT(log.take(), testing::IsEmpty());
    }

    zx::test::LogCapture log{3};
    zx::test::Scenario scenario;
    std::atomic<int> wrong{0};
};

// Mixes a number, so that the result looks random.
std::uint64_t mixed(std::uint64_t number) {
    number = (number ^ number >> 31U) * 0x9E3779B97F4A7C15U;
    return (number ^ number >> 29U) * 0xBF58476D1CE4E5B9U;
}

// A message has its producer, its number, and bytes that follow from both.
struct Message {
    static constexpr std::size_t kHead = 2 * sizeof(std::uint64_t);
    static constexpr std::size_t kLargest = kHead + 700;

    Message(std::uint64_t producer, std::uint64_t number) : head{producer, number} {
        size = kHead + seed() % (kLargest - kHead);
        for (std::size_t i = 0; i < size - kHead; ++i) {
            body[i] = static_cast<std::uint8_t>(seed() >> i % 57);
        }
    }
    [[nodiscard]] std::uint64_t seed() const { return mixed(head[0] << 56U ^ head[1]); }
    std::uint64_t head[2];
    std::uint8_t body[kLargest - kHead];
    std::size_t size;
};

TEST_F(Stress, MessagesOfManyProducersReachManyConsumersOnce) {
    constexpr std::size_t kEach = 4;
    constexpr int kCapacity = 4099;
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(kCapacity, "stress");
    std::atomic<int> room{kCapacity};
    std::counting_semaphore<> held{0};
    std::atomic<std::uint64_t> count{0};
    std::atomic<std::uint64_t> sent{0};  // the seeds of all messages, added up
    std::atomic<std::uint64_t> received{0};

    const auto put = [&](const void* message, std::size_t size) {
        const int need = static_cast<int>(size) + ZXFIFO_PREFIX_SIZE;
        while (room.fetch_sub(need) < need) {
            room += need;
            std::this_thread::yield();
        }
        zxfifo_api_blockLenIn(fifo, message, static_cast<std::int32_t>(size));
        held.release();
    };
    const auto produce = [&](std::size_t producer) {
        for (std::uint64_t number = 1; scenario.goes_on(); ++number, ++count) {
            const Message message(producer, number);
            sent += message.seed();
            put(&message, message.size);
        }
    };
    const auto consume = [&](std::size_t) {
        std::uint64_t last[kEach] = {};
        for (;;) {
            std::uint64_t got[Message::kLargest / sizeof(std::uint64_t) + 1];
            held.acquire();
            const std::int32_t size = zxfifo_api_blockLenOut1(fifo, got, sizeof got, "f", 1);
            room += size + ZXFIFO_PREFIX_SIZE;
            if (size == 0) {
                return;
            }
            const Message wanted(got[0] % kEach, got[1]);
            const bool is_whole = static_cast<std::size_t>(size) == wanted.size &&
                                  std::memcmp(got, &wanted, wanted.size) == 0;
            wrong += is_whole && got[1] > last[wanted.head[0]] ? 0 : 1;
            last[wanted.head[0]] = got[1];
            received += wanted.seed();
        }
    };
    std::jthread consumers = run_beside(kEach, consume);
    run_threads(kEach, produce);
    for (std::size_t i = 0; i < kEach; ++i) {
        put("", 0);
    }
    consumers.join();
    EXPECT_EQ(received, sent);
    scenario.tell(count, "messages");
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 0);
    zxfifo_api_blockDeinit(&fifo);
}

constexpr std::size_t kBuffers = 500;  // the most in one thread

// Allocates and frees at random. Every buffer is filled with a number of its own. Returns how often
// a buffer did not hold what was stored.
int play_with_buffers(unsigned seed, const zx::test::Scenario& scenario) {
    using Buffer = std::span<std::uint8_t>;
    int wrong = 0;
    const auto expect_full_of = [&](Buffer buffer, std::size_t number) {
        const auto is_wrong = [=](std::uint8_t byte) { return byte != number % 256; };
        wrong += std::any_of(buffer.begin(), buffer.end(), is_wrong) ? 1 : 0;
    };
    const auto replace = [&](Buffer& buffer, std::uint32_t size) {
        expect_full_of(buffer, buffer.size());
        if (void* at = buffer.data(); at != nullptr) {
            zxmem_api_free(&at);
        }
        void* const at = size != 0 ? zxmem_api_malloc(size, "stress", "s.c", 1) : nullptr;
        buffer = {static_cast<std::uint8_t*>(at), size};
        expect_full_of(buffer, 0);
        std::fill(buffer.begin(), buffer.end(), static_cast<std::uint8_t>(size));
    };
    std::minstd_rand dice(seed);
    std::vector<Buffer> buffers(kBuffers);
    while (scenario.goes_on()) {
        replace(buffers[dice() % kBuffers],
                static_cast<std::uint32_t>(dice() % 3 * (dice() % 1000)));
    }
    for (Buffer& buffer : buffers) {
        replace(buffer, 0);
    }
    return wrong;
}

TEST_F(Stress, ReportsOfLiveBuffersAreCompleteWhileThreadsAllocate) {
    constexpr std::size_t kThreads = 8;
    constexpr std::size_t kMost = kThreads * kBuffers + 1;
    log.set_level(4);
    zxmem_api_init(1);
    void* stays = zxmem_api_malloc(9, "stays", "t.c", 1);
    std::jthread workers = run_beside(kThreads, [&](std::size_t i) {
        wrong += play_with_buffers(static_cast<unsigned>(i) + 1, scenario);
    });
    const auto is_complete = [&](const std::vector<std::string>& lines) {
        for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
            const std::string number = std::to_string(i + 1);
            const bool is_ours = lines[i].ends_with(i == 0 ? "t.c 1" : "s.c 1");
            if (!is_ours || lines[i].find("0" + number + "]:addr") == std::string::npos) {
                return false;
            }
        }
        return lines.size() > 1 && lines.size() <= kMost + 1;
    };
    std::vector<char> html(700 + kMost * 600);
    std::uint64_t reports = 0;
    for (; scenario.goes_on(); reports += 2) {
        zxmem_api_showBlock();
        ASSERT_TRUE(is_complete(log.take()));
        html[0] = '\0';
        zxmem_api_info(html.data(), nullptr);
        ASSERT_NE(std::strstr(html.data(), ">stays<"), nullptr);
    }
    workers.join();
    zxmem_api_free(&stays);
    zxmem_api_showBlock();
    EXPECT_THAT(log.take(), testing::ElementsAre(testing::HasSubstr("Toal memry leak:0 byte")));
    zxmem_api_deinit();
    zxmem_api_init(0);
    scenario.tell(reports, "reports");
}

// The thread that adds waits for its slowest reader, and drops nodes after every 2500.
TEST_F(Stress, ReadersOfASharedListSeeEveryNodeBesideInsertionAndDrops) {
    constexpr std::uint64_t kSecond = 1000000;
    constexpr std::uint64_t kStep = kSecond / 2500;
    constexpr std::uint64_t kBehind = 2000 * kStep;  // less than the list always keeps
    zxsharelist_ctt list{};
    list.keep_seconds = 2;
    ASSERT_EQ(zxfifo_api_shareListInit(&list, "l"), 0);
    std::vector<std::atomic<std::uint64_t>> last(10);
    std::atomic<std::uint64_t> end{UINT64_MAX};  // the time of the last node, once known
    const std::uint64_t start = g_now;
    std::jthread readers = run_beside(last.size(), [&](std::size_t r) {
        for (std::uint64_t number = 0; last[r] < end;) {
            const IdList_ctt* const node = zxfifo_api_shareListRead(&list, last[r] + 1);
            if (node == nullptr || node->time <= last[r]) {
                std::this_thread::yield();
                continue;
            }
            if (number % 32 == 0) {  // reads the oldest node, which may be dropped
                zxfifo_api_shareListRead(&list, 1);
                std::this_thread::yield();
            }
            wrong += node->data[0] == static_cast<std::uint8_t>(number++) ? 0 : 1;
            last[r] = node->time;
        }
    });
    const auto is_near = [](const auto& time) { return time + kBehind >= g_now; };
    for (std::uint64_t i = 0; scenario.goes_on(); ++i) {
        g_now += kStep;
        while (g_now - start > kBehind && !std::all_of(last.begin(), last.end(), is_near)) {
            std::this_thread::yield();
        }
        IdList_ctt* const node = zxfifo_api_shareListMalloc(8, "n");
        node->data[0] = static_cast<std::uint8_t>(i);
        zxfifo_api_shareListIn(&list, node);
    }
    end = g_now.load();
    scenario.tell((end - start) / kStep, "nodes");
    readers.join();
    EXPECT_LE(zxfifo_api_shareListTotalNum(&list), 3 * kSecond / kStep) << "old ones were dropped";
    EXPECT_EQ(zxfifo_api_shareListDeinit(&list), 0);
}

// A list with one node at a time. The last few nodes are known by their number.
struct Refilled {
    Refilled() {
        list.keep_seconds = 1;
        EXPECT_EQ(zxfifo_api_shareListInit(&list, "refilled"), 0);
    }
    ~Refilled() { EXPECT_EQ(zxfifo_api_shareListDeinit(&list), 0); }
    Refilled(const Refilled&) = delete;
    Refilled& operator=(const Refilled&) = delete;

    void refill() {
        IdList_ctt* const node = zxfifo_api_shareListMalloc(1, "n");  // beside the old one
        g_now += 2000000;
        zxfifo_api_shareListDropTimeout(&list);
        emptied = added.load();
        nodes[(added + 1) % kKnown] = node;
        ++added;
        zxfifo_api_shareListIn(&list, node);
    }
    // False when the reader gets a node that was freed before the call.
    [[nodiscard]] bool is_read_rightly() {
        const std::uint64_t gone = emptied;
        const IdList_ctt* const node = zxfifo_api_shareListRead(&list, 1);
        const std::uint64_t last = added;
        bool is_right = node == nullptr || last - gone >= kKnown - 1;
        for (std::uint64_t number = gone + 1; number <= last && !is_right; ++number) {
            is_right = nodes[number % kKnown] == node;
        }
        return is_right || added - gone >= kKnown - 1;
    }

    static constexpr std::size_t kKnown = 8;
    zxsharelist_ctt list{};
    std::atomic<std::uint64_t> emptied{0};
    std::atomic<std::uint64_t> added{0};
    std::atomic<IdList_ctt*> nodes[kKnown] = {};
};

TEST_F(Stress, AReaderOfASharedListGetsNothingThatWasFreedBefore) {
    Refilled list;
    std::uint64_t turns = 0;
    std::jthread reader([&](const std::stop_token& end) {
        while (!end.stop_requested()) {  // checking a clock takes longer than reading the list
            wrong += list.is_read_rightly() ? 0 : 1;
        }
    });
    while (turns % 1024 != 0 || scenario.goes_on()) {
        list.refill();
        ++turns;
    }
    reader = {};
    scenario.tell(turns, "times filled again");
}

// Nothing guards a reader of the table, so a holder may be a mixture of two.
template <std::size_t N>
[[gnu::no_sanitize_thread, gnu::noinline]] std::string text_of(const char (&field)[N]) {
    const volatile char* const from = field;
    std::string text;
    for (char c = 0; text.size() < N && (c = from[text.size()]) != '\0';) {
        text += c;
    }
    return text;
}

TEST_F(Stress, LocksAreHandedOnWhileTheirTableIsRead) {
    constexpr std::size_t kLocks = 3;
    zxlock_ctt locks[kLocks] = {};
    std::uint64_t counts[kLocks] = {};
    for (zxlock_ctt& lock : locks) {
        ASSERT_EQ(zxlock_api_init(&lock, "handed on"), 0);
    }
    std::atomic<std::uint64_t> steps{0};
    std::jthread workers = run_beside(6, [&](std::size_t i) {
        const auto thread = static_cast<int>(i);
        const std::string name(1 + i * 11, 'w');
        const std::string note = name + "," + std::to_string(thread);
        std::uint64_t mine = 0;
        for (; scenario.goes_on(); ++mine) {
            zxlock_ctt& lock = locks[mixed(mine) % kLocks];
            zxlock_api_obtain(&lock, name.c_str(), thread);
            wrong += lock.holder == note && lock.locked == 1 ? 0 : 1;
            ++counts[&lock - locks];
            zxlock_api_release(&lock, name.c_str(), thread);
        }
        steps += mine;
    });
    while (scenario.goes_on()) {
        for (const zxlocklist_entry_ctt& entry : zxlocklist_ctt) {
            if (entry.used == 1) {
                EXPECT_EQ(text_of(entry.lock->name), "handed on");
                ASSERT_THAT(text_of(entry.lock->holder), testing::MatchesRegex("[nolckw,0-5]*"));
            }
        }
    }
    workers.join();
    EXPECT_EQ(counts[0] + counts[1] + counts[2], steps);
    scenario.tell(steps, "hand-overs");
    for (zxlock_ctt& lock : locks) {
        EXPECT_STREQ(lock.holder, "nolock");
        zxlock_api_deinit(&lock);
    }
}

TEST_F(Stress, LocksBeyondTheTableWork) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kEach = ZXLOCK_LIST_SIZE / kThreads;
    constexpr std::size_t kBeyond = 80;
    const auto listed = [] {
        std::vector<const zxlock_ctt*> locks;
        for (const auto& entry : zxlocklist_ctt) {
            if (entry.used == 1) {
                locks.push_back(entry.lock);
            }
        }
        std::sort(locks.begin(), locks.end());
        EXPECT_EQ(std::adjacent_find(locks.begin(), locks.end()), locks.end());
        return locks.size();
    };
    std::vector<zxlock_ctt> locks(kThreads * kEach + kBeyond);
    std::uint64_t made = 0;
    do {
        const auto all = [&](auto&& work) {
            const auto work_on = [&](std::size_t first, std::size_t count) {
                std::for_each_n(&locks[first], count,
                                [&](zxlock_ctt& lock) { wrong += work(lock) == 0 ? 0 : 1; });
            };
            run_threads(kThreads, [&](std::size_t i) { work_on(i * kEach, kEach); });
            EXPECT_THAT(listed(), testing::AnyOf(0U, ZXLOCK_LIST_SIZE));
            work_on(kThreads * kEach, kBeyond);
        };
        all([](zxlock_ctt& lock) { return zxlock_api_init(&lock, "many"); });
        EXPECT_EQ(listed(), std::size_t{ZXLOCK_LIST_SIZE});
        all([](zxlock_ctt& lock) {
            return zxlock_api_obtain(&lock, "f", 1) + zxlock_api_release(&lock, "f", 1);
        });
        all([](zxlock_ctt& lock) { return zxlock_api_deinit(&lock); });
        EXPECT_EQ(listed(), 0U);
        made += locks.size();
    } while (scenario.goes_on());
    scenario.tell(made, "locks");
}

constexpr std::uint64_t kAtOnce = 40;
std::atomic<std::uint64_t> g_stopped{0};
std::atomic<std::uint64_t> g_ended{0};

void* follow_commands(void* argument) {
    auto* const self = static_cast<zxthread_ctt*>(argument);
    EXPECT_EQ(zxthread_api_waitCmdStarting(self, 20000, 1), 1);
    for (std::uint32_t seen = ZXTHREAD_STATE_STARTING; seen == ZXTHREAD_STATE_STARTING;) {
        usleep(100);
        zxthread_api_lock(self);
        seen = self->state;
        zxthread_api_unlock(self);
    }
    while (zxthread_api_isStop(self) == 0) {
        usleep(100);
    }
    if (++g_stopped % kAtOnce == 0) {  // the last one is slow, so it must be waited for
        using Clock = std::chrono::steady_clock;
        for (const auto end = Clock::now() + std::chrono::milliseconds(5); Clock::now() < end;) {
        }
    }
    ++g_ended;
    return nullptr;
}

TEST_F(Stress, AThousandThreadsComeAndGoWithTheirHandshakes) {
    const auto tell = [](zxthread_ctt& thread, std::uint32_t state, std::uint32_t answer) {
        return zxthread_api_waitStateTimeout(&thread, state, answer, UINT32_MAX, 1);
    };
    const auto round = [&] {
        std::vector<zxthread_ctt> threads(kAtOnce);
        for (zxthread_ctt& thread : threads) {
            EXPECT_EQ(zxthread_api_create(&thread, "one of many", follow_commands, &thread), 0);
        }
        for (zxthread_ctt& thread : threads) {
            EXPECT_EQ(tell(thread, ZXTHREAD_STATE_START, ZXTHREAD_STATE_STARTING), 1);
            EXPECT_EQ(tell(thread, ZXTHREAD_STATE_RUN, ZXTHREAD_STATE_RUN), 1);
        }
        for (zxthread_ctt& thread : threads) {
            EXPECT_EQ(tell(thread, ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED), 1);
            EXPECT_EQ(zxthread_api_destroy(&thread), 0);
        }
        EXPECT_EQ(g_ended % kAtOnce, 0U);
    };
    const auto living = [] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    round();  // the C library and the thread sanitizer keep some things
    const auto before = living();
    const std::size_t memory = mallinfo2().uordblks;
    std::uint64_t rounds = 1;
    for (; rounds * kAtOnce < 1000 || scenario.goes_on(); ++rounds) {
        round();
    }
    scenario.tell(kAtOnce * rounds, "threads");
    EXPECT_LT(mallinfo2().uordblks, memory + kAtOnce * rounds * sizeof(void*))
        << "no word a thread";
    for (int i = 0; i < 1000 && living() > before; ++i) {
        usleep(1000);  // a joined thread may still be leaving the kernel
    }
    EXPECT_LE(living(), before);
}

}  // namespace
