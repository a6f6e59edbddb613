#include "zxfifo.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kCapacity = 16;

class FifoTest : public testing::Test {
protected:
    ~FifoTest() override {
        const zxfifoblock_ctt* const before = fifo;
        zxfifo_api_blockDeinit(&fifo);
        EXPECT_EQ(fifo, before) << "the caller clears it";
    }

    zx::test::LogCapture log;
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(kCapacity, "ring");
};

TEST_F(FifoTest, PassesBytesAroundTheEndOfItsTotals) {
    EXPECT_STREQ(fifo->lock.name, "zxfifo_lock_ring");
    fifo->total_in = fifo->total_out = 0xFFFFFFE0;
    Bytes in(kCapacity);
    std::iota(in.begin(), in.end(), std::uint8_t{1});
    for (std::int32_t size : {5, 11, 16, 1, 7, 16, 0}) {  // up to the end, across it, whole turns
        SCOPED_TRACE(size);
        Bytes out(kCapacity);
        EXPECT_EQ(zxfifo_api_blockIn(fifo, in.data(), size, nullptr), size);
        EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), size);
        EXPECT_EQ(zxfifo_api_blockOut(fifo, out.data(), size, nullptr), size);
        EXPECT_EQ(zxfifo_innerapi_blockSpaceFree(fifo), 16);
        EXPECT_EQ(std::memcmp(in.data(), out.data(), static_cast<std::size_t>(size)), 0);
    }
}

// A transfer function that is told how much to say it has moved in each call.
struct Script {
    std::vector<std::int32_t> results;
    std::vector<std::int32_t> offered;

    static std::int32_t move(void* context, std::uint8_t*, std::int32_t length) {
        Script& self = *static_cast<Script*>(context);
        self.offered.push_back(length);
        return self.results.at(self.offered.size() - 1);
    }
};

TEST_F(FifoTest, TransferFunctionsMoveDirectly) {
    zxfifo_innerapi_blockDrainIn(fifo, 10);
    zxfifo_innerapi_blockDrainOut(fifo, 10);
    Script in{{6, 4, 2}, {}};  // the ring's end after 6, then a short piece
    EXPECT_EQ(zxfifo_api_blockIn(fifo, &in, 12, Script::move), 12);
    EXPECT_THAT(in.offered, ElementsAre(6, 6, 2));
    Script out{{99, 99}, {}};  // more than it was offered
    EXPECT_EQ(zxfifo_api_blockOut(fifo, &out, 12, Script::move), 12);
    EXPECT_THAT(out.offered, ElementsAre(6, 6));

    Script fails_in{{3, -1}, {}};
    EXPECT_EQ(zxfifo_api_blockIn(fifo, &fails_in, 10, Script::move), 3);
    Script fails_out{{2, 0}, {}};
    EXPECT_EQ(zxfifo_api_blockOut(fifo, &fails_out, 3, Script::move), 2);
    EXPECT_THAT(fails_out.offered, ElementsAre(3, 1));
    EXPECT_THAT(log.take(),
                ElementsAre("[WARN][FIFO_STRU]ring:recv-func error",
                            "[WARN][FIFO_STRU]ring:maybe has an error,need in 10,but 3",
                            "[WARN][FIFO_STRU]ring:send-func error",
                            "[WARN][FIFO_STRU]ring:maybe has an error,need out 3,but 2"));
    EXPECT_STREQ(fifo->lock.holder, "nolock");
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

TEST_F(FifoTest, TakesAMessageThatHasRoomOnly) {
    Bytes bytes{1, 2, 3};
    EXPECT_EQ(zxfifo_api_blockLenIn(fifo, bytes.data(), -1), -1);
    zxfifo_api_blockLenIn(fifo, bytes.data(), 0);
    zxfifo_api_blockLenIn(fifo, bytes.data(), 3);
    EXPECT_EQ(Bytes(fifo->start, fifo->start + 11), (Bytes{0, 0, 0, 0, 0, 0, 0, 3, 1, 2, 3}));
    EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, bytes.data(), 2, "reader", 7), 0);
    EXPECT_EQ(zxfifo_api_blockLenOut1(fifo, bytes.data(), 2, "reader", 7), -1);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][FIFO_STRU]Error data size:-1",
                            "[ERROR][FIFO_STRU]ring:buf_size(2) too small,must be large than(3),"
                            "spaceused:3(func, line:reader,7)"));
    EXPECT_THAT(log.take_dumps(), ElementsAre("len_buf:00000003"));
    EXPECT_EQ(zxfifo_innerapi_blockReset(fifo), 1);
    EXPECT_EQ(zxfifo_innerapi_blockSpaceUsed(fifo), 0);
    EXPECT_EQ(zxfifo_api_blockSizeUsed(fifo), 3) << "the snapshot is the caller's to refresh";
}

TEST_F(FifoTest, RefusesMissingArguments) {
    zxfifoblock_ctt* none = zxfifo_api_blockInit(1, nullptr);
    EXPECT_EQ(none, nullptr);
    zxfifo_api_blockDeinit(&none);
    EXPECT_EQ(zxfifo_api_blockReset(nullptr), -1);
    EXPECT_EQ(zxfifo_api_blockIn(nullptr, "x", 1, nullptr), -1);
    EXPECT_EQ(zxfifo_api_blockIn(fifo, nullptr, 1, Script::move), -1);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][FIFO_STRU]Param error####name",
                                        "[ERROR][FIFO_STRU]Error param ###pzxfifoblock_ctt",
                                        "[ERROR][FIFO_STRU]Error param ###pzxfifoblock_ctt",
                                        "[ERROR][FIFO_STRU]Error param ###pbuf"));
}

}  // namespace
