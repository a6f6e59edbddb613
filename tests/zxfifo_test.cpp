#include "zxfifo.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "log_capture.hpp"
#include "zxmem.h"

namespace {

int g_allocations_left = -1;  // negative: no end

}  // namespace

// Stands in for the library's allocator, so that memory can run short.
extern "C" void* zxmem_api_malloc(uint32_t size, const char*, const char*, uint32_t) {
    return g_allocations_left-- == 0 ? nullptr : std::calloc(1, size);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kCapacity = 16;

class FifoTest : public testing::Test {
protected:
    FifoTest() { g_allocations_left = -1; }
    ~FifoTest() override { zxfifo_api_blockDeinit(&fifo); }

    static Bytes count_up(std::size_t size) {
        Bytes bytes(size);
        std::iota(bytes.begin(), bytes.end(), std::uint8_t{1});
        return bytes;
    }
    void expect_spaces(std::int32_t used) {
        EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), used);
        EXPECT_EQ(zxfifo_innerapi_blockSpaceUsed(fifo), used);
        EXPECT_EQ(zxfifo_api_blockSizeLeft(fifo), static_cast<std::int32_t>(kCapacity) - used);
        EXPECT_EQ(zxfifo_innerapi_blockSpaceFree(fifo),
                  static_cast<std::int32_t>(kCapacity) - used);
    }

    zx::test::LogCapture log;
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(kCapacity, "ring");
};

TEST_F(FifoTest, InitLeavesNothingBehindWhenMemoryIsShort) {
    EXPECT_STREQ(fifo->lock.name, "zxfifo_lock_ring");
    EXPECT_EQ(zxfifo_innerapi_blockSpaceTotal(fifo), 16);
    for (int left : {0, 1}) {
        g_allocations_left = left;
        EXPECT_EQ(zxfifo_api_blockInit(1, "n"), nullptr);
    }
    EXPECT_EQ(zxfifo_api_blockInit(1, nullptr), nullptr);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][FIFO_STRU]Malloc n_zxfifoblock failed,please check the memory",
                            "[ERROR][FIFO_STRU]Malloc n_buf failed,please check the memory",
                            "[ERROR][FIFO_STRU]Param error####name"));
    const zxfifoblock_ctt* const before = fifo;
    zxfifo_api_blockDeinit(&fifo);
    EXPECT_EQ(fifo, before);
    fifo = nullptr;
}

TEST_F(FifoTest, PassesBytesAroundTheEndOfRingAndTotals) {
    fifo->total_in = fifo->total_out = 0xFFFFFFE0;
    const Bytes in = count_up(kCapacity);
    for (std::int32_t size : {5, 11, 16, 1, 7, 16, 0}) {  // up to the end, across it, whole turns
        SCOPED_TRACE(size);
        Bytes out(kCapacity);
        EXPECT_EQ(zxfifo_api_blockIn(fifo, in.data(), size, nullptr), size);
        expect_spaces(size);
        EXPECT_EQ(zxfifo_api_blockOut(fifo, out.data(), size, nullptr), size);
        expect_spaces(0);
        EXPECT_EQ(std::memcmp(in.data(), out.data(), static_cast<std::size_t>(size)), 0);
        EXPECT_EQ(fifo->write_pos, fifo->read_pos);
    }
    EXPECT_EQ(zxfifo_api_blockIn(fifo, in.data(), -3, nullptr), 0);
    EXPECT_THAT(log.take(), IsEmpty());
}

// A transfer function that is told how much to move in each call.
struct Script {
    std::vector<std::int32_t> results;
    Bytes data;
    std::vector<std::int32_t> offered;

    static std::int32_t fill(void* context, std::uint8_t* position, std::int32_t length) {
        const std::int32_t result = static_cast<Script*>(context)->next(length);
        std::memset(position, 'x', static_cast<std::size_t>(std::clamp(result, 0, length)));
        return result;
    }
    static std::int32_t drain(void* context, std::uint8_t* position, std::int32_t length) {
        Script& self = *static_cast<Script*>(context);
        const std::int32_t result = self.next(length);
        self.data.insert(self.data.end(), position, position + std::clamp(result, 0, length));
        return result;
    }
    std::int32_t next(std::int32_t length) {
        const std::int32_t result = results.at(offered.size());
        offered.push_back(length);
        return result;
    }
};

TEST_F(FifoTest, TransferFunctionsMoveDirectly) {
    const struct {
        std::vector<std::int32_t> results;
        std::int32_t length;
        std::vector<std::int32_t> offered;
        std::int32_t moved;
    } cases[] = {
        {{}, 0, {}, 0},
        {{6, 4, 2}, 12, {6, 6, 2}, 12},  // the ring's end after 6, then a short piece
        {{3, 0}, 10, {6, 3}, 3},         // fails
        {{3, -1}, 10, {6, 3}, 3},        // a negative count has failed, too
        {{99, 99}, 10, {6, 4}, 10},      // claims more than it was offered
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.results));
        zxfifo_api_blockReset(fifo);
        zxfifo_innerapi_blockDrainIn(fifo, 10);
        zxfifo_innerapi_blockDrainOut(fifo, 10);
        std::vector<std::string> in_lines;
        std::vector<std::string> out_lines;
        if (c.moved < c.length) {
            const std::string counts = std::to_string(c.length) + ",but " + std::to_string(c.moved);
            in_lines = {"[WARN][FIFO_STRU]ring:recv-func error",
                        "[WARN][FIFO_STRU]ring:maybe has an error,need in " + counts};
            out_lines = {"[WARN][FIFO_STRU]ring:send-func error",
                         "[WARN][FIFO_STRU]ring:maybe has an error,need out " + counts};
        }

        Script in{c.results, {}, {}};
        EXPECT_EQ(zxfifo_api_blockIn(fifo, &in, c.length, Script::fill), c.moved);
        EXPECT_EQ(in.offered, c.offered);
        EXPECT_EQ(log.take(), in_lines);
        expect_spaces(c.moved);
        EXPECT_STREQ(fifo->lock.holder, "nolock");

        Script out{c.results, {}, {}};
        EXPECT_EQ(zxfifo_api_blockOut(fifo, &out, c.length, Script::drain), c.moved);
        EXPECT_EQ(out.offered, c.offered);
        EXPECT_EQ(out.data, Bytes(static_cast<std::size_t>(c.moved), 'x'));
        EXPECT_EQ(log.take(), out_lines);
        expect_spaces(0);
    }
}

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

TEST_F(FifoTest, MessagesCarryTheirLength) {
    Bytes in = count_up(11);
    for (int turn = 0; turn < 20; ++turn) {
        EXPECT_EQ(zxfifo_api_blockLenIn(fifo, in.data(), 11), 11);
        expect_spaces(15);
        Bytes out(11);
        EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, out.data(), 11, "f", 1), 11);
        EXPECT_EQ(out, in);
    }
    EXPECT_EQ(zxfifo_api_blockLenIn(fifo, in.data(), -1), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][FIFO_STRU]Error data size:-1"));

    zxfifo_api_blockReset(fifo);
    zxfifo_api_blockLenIn(fifo, in.data(), 0);
    zxfifo_api_blockLenIn(fifo, in.data(), 3);
    EXPECT_EQ(Bytes(fifo->start, fifo->start + 11), (Bytes{0, 0, 0, 0, 0, 0, 0, 3, 1, 2, 3}));
    EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, in.data(), 2, "reader", 7), 0);
    EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, in.data(), 2, "reader", 7), -1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][FIFO_STRU]ring:buf_size(2) too small,must be large than(3),"
                            "spaceused:3(func, line:reader,7)"));
    EXPECT_THAT(log.take_dumps(), ElementsAre("len_buf:00000003"));
    expect_spaces(3);
}

TEST_F(FifoTest, ResetsAreCounted) {
    zxfifo_api_blockLenIn(fifo, "abc", 3);
    EXPECT_EQ(zxfifo_api_blockReset(fifo), 1);
    EXPECT_EQ(zxfifo_api_blockReset(fifo), 2);
    EXPECT_EQ(zxfifo_api_blockResetNum(fifo), 2);
    expect_spaces(0);
    zxfifo_api_blockLenIn(fifo, "abc", 3);
    zxfifoblockstat_ctt view{1, 2, 3, 4, fifo};
    EXPECT_EQ(zxfifo_api_blockReset2(&view), 0);
    EXPECT_EQ(zxfifo_api_blockResetNum(fifo), 0);
    EXPECT_THAT((std::vector{view.free, view.reserved, view.used, view.reset_count}),
                ElementsAre(kCapacity, 2U, 0U, 0U));
    zxfifo_api_blockLenIn(fifo, "abc", 3);
    EXPECT_EQ(zxfifo_innerapi_blockReset(fifo), 1);
    EXPECT_EQ(zxfifo_innerapi_blockSpaceUsed(fifo), 0);
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 7) << "the snapshot is the caller's to refresh";
}

TEST_F(FifoTest, RefusesMissingArguments) {
    EXPECT_EQ(zxfifo_api_blockReset(nullptr), -1);
    EXPECT_EQ(zxfifo_api_blockIn(nullptr, "x", 1, nullptr), -1);
    EXPECT_EQ(zxfifo_api_blockIn(fifo, nullptr, 1, Script::fill), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][FIFO_STRU]Error param ###pzxfifoblock_ctt",
                                        "[ERROR][FIFO_STRU]Error param ###pzxfifoblock_ctt",
                                        "[ERROR][FIFO_STRU]Error param ###pbuf"));
}

TEST_F(FifoTest, WithoutCapacityNothingIsStored) {
    zxfifoblock_ctt* none = zxfifo_api_blockInit(0, "none");
    char byte = 0;
    EXPECT_EQ(zxfifo_api_blockIn(none, &byte, 1, nullptr), 0);
    EXPECT_EQ(zxfifo_api_blockOut(none, &byte, 1, nullptr), 0);
    EXPECT_EQ(zxfifo_innerapi_blockDrainOut(none, 9), 0);
    EXPECT_THAT(log.take(),
                ElementsAre("[WARN][FIFO_STRU]none:maybe has an error,need in 1,but 0",
                            "[WARN][FIFO_STRU]none:maybe has an error,need out 1,but 0"));
    zxfifo_api_blockDeinit(&none);
}

}  // namespace
