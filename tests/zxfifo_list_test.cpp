// List pools and shared lists.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxfifo.h"
#include "zxlog.h"
#include "zxmem.h"

namespace {

std::uint64_t g_now = 0;
int g_allocations_left = -1;  // negative: no end

}  // namespace

// Stand in for the library's clock and allocator.
extern "C" uint64_t zxlog_api_us(void) {
    return g_now;
}
extern "C" void* zxmem_api_malloc(uint32_t size, const char*, const char*, uint32_t) {
    return g_allocations_left-- == 0 ? nullptr : std::calloc(1, size);
}

namespace {

using testing::ElementsAre;

constexpr std::uint64_t kSecond = 1000000;

class ListPoolTest : public testing::Test {
protected:
    ListPoolTest() { g_allocations_left = -1; }
    ~ListPoolTest() override { zxfifo_api_listReset(&head); }

    zxfifolist_ctt* add() {
        zxfifolist_ctt* const node = zxfifo_api_listMalloc(4, "n");
        zxfifo_api_listIn(&head, node);
        return node;
    }
    std::vector<std::uint32_t> counts() const {
        std::vector<std::uint32_t> all;
        for (const zxfifolist_ctt* node = head; node != nullptr; node = node->next) {
            all.push_back(node->count);
        }
        return all;
    }

    zx::test::LogCapture log;
    zxfifolist_ctt* head = nullptr;
};

TEST_F(ListPoolTest, EveryNodeKnowsTheLength) {
    EXPECT_EQ(zxfifo_api_listOut(&head), nullptr);
    EXPECT_EQ(zxfifo_api_listTotalNum(&head), 0U);
    zxfifolist_ctt* const nodes[] = {add(), add(), add()};
    EXPECT_THAT(counts(), ElementsAre(3, 3, 3));
    zxfifolist_ctt* taken = zxfifo_api_listOut(&head);
    EXPECT_EQ(taken, nodes[0]);
    EXPECT_EQ(taken->count, 3U) << "as it was in the queue";
    EXPECT_EQ(taken->next, nodes[1]);
    EXPECT_THAT(counts(), ElementsAre(2, 2));
    zxfifo_api_listIn(&head, taken);
    EXPECT_THAT(counts(), ElementsAre(3, 3, 3));
    EXPECT_EQ(nodes[2]->next, taken);
    zxfifo_api_listReset(&head);
    EXPECT_EQ(head, nullptr);
}

TEST_F(ListPoolTest, RefusesMissingArgumentsAndLeavesNothingBehind) {
    zxfifolist_ctt* none = nullptr;
    zxfifo_api_listDemalloc(nullptr);
    zxfifo_api_listDemalloc(&none);
    zxfifo_api_shareListDemalloc(nullptr);
    for (int left : {0, 1}) {
        g_allocations_left = left;
        EXPECT_EQ(zxfifo_api_listMalloc(4, "n"), nullptr);
    }
    EXPECT_EQ(zxfifo_api_shareListMalloc(4, nullptr), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][FIFO_STRU]Error param ###ppzxfifolist_ctt",
                            "[ERROR][FIFO_STRU]Error param ###(*ppzxfifolist_ctt)",
                            "[ERROR][FIFO_STRU]Error param ###ppIdList_ctt",
                            "[ERROR][FIFO_STRU]Malloc n_zxfifoblock failed,please check the memory",
                            "[ERROR][FIFO_STRU]Malloc n_buf failed,please check the memory",
                            "[ERROR][FIFO_STRU]Param error####name"));
}

// A list with a clock that the test turns.
struct SharedList {
    explicit SharedList(std::uint32_t keep_seconds) {
        list.keep_seconds = keep_seconds;
        EXPECT_EQ(zxfifo_api_shareListInit(&list, "l"), 0);
    }
    ~SharedList() { EXPECT_EQ(zxfifo_api_shareListDeinit(&list), 0); }
    SharedList(const SharedList&) = delete;
    SharedList& operator=(const SharedList&) = delete;

    void add(std::uint64_t time) {
        g_now = time;
        zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(8, "n"));
    }
    // 0: nothing was found.
    std::uint64_t read(std::uint64_t since) {
        const IdList_ctt* const node = zxfifo_api_shareListRead(&list, since);
        return node != nullptr ? node->time : 0;
    }
    std::vector<std::uint64_t> times() const {
        std::vector<std::uint64_t> all;
        for (const IdList_ctt* node = list.head; node != nullptr; node = node->next) {
            all.push_back(node->time);
        }
        EXPECT_EQ(zxfifo_api_shareListTotalNum(&list), all.size());
        return all;
    }

    zxsharelist_ctt list{};
};

class SharedListTest : public testing::Test {
protected:
    SharedListTest() { g_allocations_left = -1; }

    zx::test::LogCapture log;
};

TEST_F(SharedListTest, ReadsByTime) {
    SharedList s(10);
    EXPECT_STREQ(s.list.lock.name, "zxfifo_lock_l");
    EXPECT_EQ(s.read(0), 0U);
    for (const std::uint64_t time : {100U, 200U, 200U, 300U}) {
        s.add(time);
    }
    EXPECT_EQ(s.list.newest, 300U);
    EXPECT_EQ(s.read(0), 100U);
    EXPECT_EQ(s.read(101), 200U);
    EXPECT_EQ(zxfifo_api_shareListRead(&s.list, 200), s.list.head->next) << "the first of two";
    EXPECT_EQ(s.read(301), 300U) << "the newest when all are older";
    EXPECT_EQ(s.read(150), 200U) << "back again";
    s.add(400);
    EXPECT_EQ(s.read(301), 400U);
    zxfifo_api_shareListReset(&s.list);
    EXPECT_EQ(s.read(301), 0U);
    EXPECT_EQ(s.list.tail, nullptr);
}

TEST_F(SharedListTest, DropsWhatIsAsOldAsTheKeepTimeOnceASecond) {
    SharedList s(2);
    s.add(10 * kSecond);
    s.add(11 * kSecond);  // not more than a second after the look at 10
    EXPECT_EQ(s.list.drop_timer, 10 * kSecond);
    s.add(12 * kSecond - 1);
    EXPECT_EQ(s.list.drop_timer, 12 * kSecond - 1);
    s.add(12 * kSecond);
    EXPECT_EQ(s.times().size(), 4U);
    zxfifo_api_shareListDropTimeout(&s.list);
    EXPECT_THAT(s.times(), ElementsAre(11 * kSecond, 12 * kSecond - 1, 12 * kSecond));
    s.add(20 * kSecond);
    EXPECT_THAT(s.times(), ElementsAre(20 * kSecond));
    s.add(15 * kSecond);  // the clock was set back: what is of the future goes
    EXPECT_THAT(s.times(), ElementsAre(15 * kSecond));
}

TEST_F(SharedListTest, KeepTimeOverflowsAsThirtyTwoBits) {
    const struct {
        std::uint32_t keep_seconds;
        std::uint64_t age;
        std::size_t left;
    } cases[] = {
        {0, 0, 0},
        {2147, 2147 * kSecond - 1, 1},
        {2147, 2147 * kSecond, 0},
        {2148, UINT32_MAX, 1},
        {4294, UINT32_MAX, 1},
        {4295, 32703, 1},
        {4295, 32704, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.keep_seconds << " " << c.age);
        SharedList s(c.keep_seconds);
        s.list.drop_timer = kSecond;  // no look at the insertion
        s.add(kSecond);
        ASSERT_EQ(s.times().size(), 1U);
        g_now += c.age;
        zxfifo_api_shareListDropTimeout(&s.list);
        EXPECT_EQ(s.times().size(), c.left);
    }
    SharedList none(0);
    none.add(2 * kSecond);
    EXPECT_EQ(none.list.head, nullptr) << "the first insertion looks, too";
}

// A reader's remembered place is never wrong: not after drops, with the clock set back, with lists
// in turn, with a list in the place of another.
TEST_F(SharedListTest, RememberedPlacesFindWhatAWalkFinds) {
    std::uint64_t now = 100 * kSecond;
    for (int round = 0; round < 30; ++round) {
        std::vector<SharedList*> lists;  // at addresses that come again
        for (int i = 0; i < 12; ++i) {
            lists.push_back(new SharedList(1));
        }
        for (int step = 0; step < 40; ++step) {
            const auto dice = static_cast<std::uint64_t>(std::rand());
            now += dice % 5 == 0 ? -now / 1000 : dice % (kSecond / 4);
            SharedList& s = *lists[dice % lists.size()];
            s.add(now);
            if (dice % 17 == 0) {
                zxfifo_api_shareListReset(&s.list);
            }
            for (const std::uint64_t since : {now - kSecond / 2, now, now + 1}) {
                const std::vector<std::uint64_t> times = s.times();
                const auto found = std::find_if(times.begin(), times.end(),
                                                [&](std::uint64_t t) { return t >= since; });
                const std::uint64_t wanted = times.empty()          ? 0
                                             : found != times.end() ? *found
                                                                    : times.back();
                ASSERT_EQ(s.read(since), wanted);
            }
        }
        std::for_each(lists.begin(), lists.end(), [](SharedList* s) { delete s; });
    }
}

}  // namespace
