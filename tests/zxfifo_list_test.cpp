// List pools and shared lists.
#include <gmock/gmock.h>

#include <random>
#include <vector>

#include "log_capture.hpp"
#include "zxfifo.h"
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

TEST(ListPoolTest, ATakenNodeStaysAsItWasInTheQueue) {
    zxfifolist_ctt* head = nullptr;
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(4, "n"));
    zxfifo_api_listIn(&head, zxfifo_api_listMalloc(4, "n"));
    zxfifolist_ctt* taken = zxfifo_api_listOut(&head);
    EXPECT_EQ(taken->count, 2U);
    EXPECT_EQ(taken->next, head);
    zxfifo_api_listDemalloc(&taken);
    zxfifo_api_listReset(&head);
}

TEST(ListPoolTest, RefusesMissingArguments) {
    zx::test::LogCapture log;
    zxfifolist_ctt* none = nullptr;
    zxfifo_api_listDemalloc(nullptr);
    zxfifo_api_listDemalloc(&none);
    zxfifo_api_shareListDemalloc(nullptr);
    EXPECT_EQ(zxfifo_api_shareListMalloc(4, nullptr), nullptr);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][FIFO_STRU]Error param ###ppzxfifolist_ctt",
                                        "[ERROR][FIFO_STRU]Error param ###(*ppzxfifolist_ctt)",
                                        "[ERROR][FIFO_STRU]Error param ###ppIdList_ctt",
                                        "[ERROR][FIFO_STRU]Param error####name"));
}

// A list with a clock that the test turns.
struct SharedList {
    explicit SharedList(std::uint32_t keep_seconds = 1) {
        list.keep_seconds = keep_seconds;
        EXPECT_EQ(zxfifo_api_shareListInit(&list, "l"), 0);
        EXPECT_STREQ(list.lock.name, "zxfifo_lock_l");
    }
    ~SharedList() { EXPECT_EQ(zxfifo_api_shareListDeinit(&list), 0); }
    SharedList(const SharedList&) = delete;
    SharedList& operator=(const SharedList&) = delete;

    void add(std::uint64_t time) {
        g_now = time;
        zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(8, "n"));
        EXPECT_EQ(list.newest, time);
    }
    [[nodiscard]] const IdList_ctt* walk(std::uint64_t since) const {
        const IdList_ctt* node = list.head;
        while (node != nullptr && node->time < since && node->next != nullptr) {
            node = node->next;
        }
        return node;
    }

    zxsharelist_ctt list{};
};

TEST(SharedListTest, KeepTimeOverflowsAsThirtyTwoBits) {
    const struct {
        std::uint32_t keep_seconds;
        std::uint64_t age;
        std::uint32_t left;
    } cases[] = {
        {2147, 2147 * kSecond - 1, 1}, {2147, 2147 * kSecond, 0}, {2148, UINT32_MAX, 1},
        {4294, UINT32_MAX, 1},         {4295, 32703, 1},          {4295, 32704, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.keep_seconds << " " << c.age);
        SharedList s(c.keep_seconds);
        s.add(kSecond);
        g_now += c.age;
        zxfifo_api_shareListDropTimeout(&s.list);
        EXPECT_EQ(zxfifo_api_shareListTotalNum(&s.list), c.left);
    }
}

// A reader's remembered place is never wrong: not after drops, with the clock set back, with lists
// in turn, with a list in the place of another.
TEST(SharedListTest, RememberedPlacesFindWhatAWalkFinds) {
    std::minstd_rand dice;
    std::uint64_t now = 100 * kSecond;
    for (int round = 0; round < 30; ++round) {
        std::vector<SharedList> lists(12);  // at addresses that come again
        for (int step = 0; step < 40; ++step) {
            const std::uint64_t number = dice();
            now = number % 5 == 0 ? now - now / 1000 : now + number % (kSecond / 4);
            SharedList& s = lists[number % lists.size()];
            s.add(now);
            if (number % 17 == 0) {
                zxfifo_api_shareListReset(&s.list);
            }
            for (const std::uint64_t since : {now - kSecond / 2, now, now + 1}) {
                ASSERT_EQ(zxfifo_api_shareListRead(&s.list, since), s.walk(since));
            }
        }
    }
}

}  // namespace
