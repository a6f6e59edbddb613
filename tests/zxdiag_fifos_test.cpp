// FIFOs and lists in the answers of the diagnosis. What it counts, the models of the fuzz targets
// prove.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "asked.hpp"
#include "child.hpp"
#include "process.hpp"
#include "zxdiag.h"
#include "zxdiag/known.hpp"
#include "zxfifo.h"

namespace {

using zx::test::Asked;

// A reader may come at any time. Without an id, it knows that what it sees does not belong
// together.
TEST(DiagKnown, AnEntryHasNoIdWhileItIsPreparedForAnotherRecord) {
    struct Entry {
        std::atomic<const void*> record{};
        std::atomic<std::uint64_t> id{};
    };
    static constinit zx::diag::Known<Entry, 2> known;
    const char records[3] = {};
    std::vector<std::uint64_t> meanwhile, then;
    for (const char& record : records) {
        const Entry* const entry =
            known.entry_of(&record, [&](const Entry& fresh) { meanwhile.push_back(fresh.id); });
        then.push_back(entry != nullptr ? entry->id.load() : 0);
        known.forget(&record);
    }
    EXPECT_THAT(meanwhile, testing::Each(0));
    EXPECT_THAT(then, testing::ElementsAre(1, 2, 3));
}

class DiagFifos : public testing::Test {
protected:
    ~DiagFifos() override { zxdiag_api_stop(); }
};

TEST_F(DiagFifos, OneThatWasMadeBeforeIsSeenAtItsNextUse) {
    std::string name(127, 'n');
    name.append("\xC3\xA4");  // it is cut within this letter
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(16, name.c_str());
    name.replace(127, 2, "?");
    zxfifo_api_blockIn(fifo, "0123456789abcdefghij", 20, nullptr);
    zxdiag_api_start();
    EXPECT_EQ(Asked("fifos").find("fifos", fifo), nullptr);
    EXPECT_EQ(zxfifo_api_blockSizeLeft(fifo), -4);
    const Asked before("fifos");
    EXPECT_EQ(before.text("fifos", fifo, "name"), name);
    EXPECT_EQ(before.number("fifos", fifo, "used_bytes"), 20);
    EXPECT_EQ(before.number("fifos", fifo, "in_bytes"), 0);

    zxfifo_api_blockIn(fifo, "12345678", 8, nullptr);
    const Asked after("fifos");
    const double over_s = after.number("fifos", fifo, "rates_over_us") / 1e6;
    EXPECT_NEAR(after.number("fifos", fifo, "in_bytes_per_s") * over_s, 8, 1e-6);
    EXPECT_EQ(after.number("fifos", fifo, "out_bytes_per_s"), 0);
    EXPECT_EQ(after.number("fifos", fifo, "overwritten_bytes"), 8);

    EXPECT_EQ(zx::test::in_child([&] {
                  const bool was_off = zxfifo_api_blockIn(fifo, "x", 1, nullptr) == 1;
                  zxdiag_api_start();
                  zxfifo_api_blockIn(fifo, "y", 1, nullptr);  // begins to count again
                  zxfifo_api_blockIn(fifo, "z", 1, nullptr);
                  const Asked its("fifos");
                  return std::to_string(was_off) + " " +
                         std::to_string(static_cast<int>(its.number("fifos", fifo, "used_bytes"))) +
                         " " +
                         std::to_string(static_cast<int>(its.number("fifos", fifo, "in_bytes")));
              }),
              "1 31 9");
    zxdiag_api_stop();
    zxfifo_api_blockDeinit(&fifo);  // also forgotten while nothing is counted
    EXPECT_EQ(Asked("fifos").find("fifos", "name", name), nullptr);
}

TEST_F(DiagFifos, ThoseThatAreGoneGiveTheirRoomToOthers) {
    zxdiag_api_start();
    for (int i = 0; i < 20000; ++i) {
        zxfifoblock_ctt* fifo = zxfifo_api_blockInit(1, "short-lived");
        zxfifo_api_blockDeinit(&fifo);
    }
    EXPECT_EQ(Asked("fifos").size("fifos"), 0);

    std::vector<zxfifoblock_ctt*> many(6000);
    for (zxfifoblock_ctt*& fifo : many) {
        fifo = zxfifo_api_blockInit(1, "many");
        zxfifo_api_blockIn(fifo, "x", 1, nullptr);
    }
    const Asked full("fifos");
    const double left_out = Asked::number(full.whole(), "left_out");
    EXPECT_GT(full.size("fifos"), 3500);
    EXPECT_GT(left_out, 1000);
    EXPECT_LE(full.size("fifos") + left_out, 6000);
    for (std::size_t i = 0; i + 1 < many.size(); ++i) {
        zxfifo_api_blockDeinit(&many[i]);
    }
    zxfifo_api_blockSizeUsed(many.back());  // was left out; there is room now
    const Asked after("fifos");
    EXPECT_EQ(after.size("fifos"), 1);
    EXPECT_EQ(after.number("fifos", many.back(), "used_bytes"), 1);
    EXPECT_EQ(Asked::number(after.whole(), "left_out"), 0);
    zxfifo_api_blockDeinit(&many.back());
}

TEST_F(DiagFifos, AreAskedWhileThreadsUseThem) {
    constexpr int kMessages = 2000;
    zxdiag_api_start();
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(1024, "busy");
    std::atomic<int> finished{0};
    std::thread writer([&] {
        for (int i = 0; i < kMessages;) {
            if (zxfifo_api_blockSizeLeft(fifo) >= 100 + ZXFIFO_PREFIX_SIZE) {
                zxfifo_api_blockLenIn(fifo, std::string(100, 'x').data(), 100);
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
        ++finished;
    });
    std::thread reader([&] {
        for (int i = 0; i < kMessages;) {
            char message[100];
            if (zxfifo_api_blockSizeUsed(fifo) > 0) {
                zxfifo_api_blockLenOut1(fifo, message, sizeof message, __func__, __LINE__);
                ++i;
            } else {
                std::this_thread::yield();
            }
        }
        ++finished;
    });
    std::thread owner([&] {
        while (finished < 2) {
            zxfifoblock_ctt* other = zxfifo_api_blockInit(1, "other");
            zxsharelist_ctt list{};
            zxfifo_api_shareListInit(&list, "other");
            zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(1, "node"));
            zxfifo_api_shareListDeinit(&list);
            zxfifo_api_blockDeinit(&other);
        }
    });
    for (; finished < 2; usleep(1000)) {
        const Asked now("fifos");
        EXPECT_LE(now.number("fifos", fifo, "used_bytes"), 1024);
        EXPECT_EQ(now.text("fifos", fifo, "name"), "busy");
        (void)Asked("lists");
    }
    for (std::thread* const thread : {&writer, &reader, &owner}) {
        thread->join();
    }
    const Asked end("fifos");
    EXPECT_EQ(end.size("fifos"), 1);
    EXPECT_EQ(end.number("fifos", fifo, "in_bytes"), kMessages * 104);
    EXPECT_EQ(end.number("fifos", fifo, "out_bytes"), kMessages * 104);
    EXPECT_EQ(end.number("fifos", fifo, "overwritten_bytes"), 0);
    EXPECT_EQ(end.number("fifos", fifo, "stale_bytes"), 0);
    EXPECT_LE(end.number("fifos", fifo, "highest_bytes"), 1024);
    zxfifo_api_blockDeinit(&fifo);
}

TEST_F(DiagFifos, AListThatWasNeverGivenBackDoesNotLendItsNumbers) {
    zxdiag_api_start();
    zxsharelist_ctt list{};
    list.keep_seconds = 60;
    zxfifo_api_shareListInit(&list, "first");
    zxfifo_api_shareListIn(&list, zxfifo_api_shareListMalloc(1, "node"));
    EXPECT_EQ(Asked("lists").number("lists", &list, "nodes"), 1);
    zxfifo_api_shareListReset(&list);
    zxlock_api_deinit(&list.lock);
    zxfifo_api_shareListInit(&list, "second");
    const Asked now("lists");
    EXPECT_EQ(now.text("lists", &list, "name"), "second");
    EXPECT_EQ(now.number("lists", &list, "dropped"), 0);
    EXPECT_EQ(now.number("lists", &list, "keep_s"), 60);
    zxfifo_api_shareListDeinit(&list);
    EXPECT_EQ(Asked("lists").size("lists"), 0);
}

}  // namespace
