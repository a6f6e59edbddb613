#include "zxcommon.hpp"

#include <gmock/gmock.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr zxcommon::Wait kWait{5000, 1};

TEST(ZxcommonHpp, BuffersAreFreedAndKnownByTheCaller) {
    zx::test::LogCapture log;
    zxmem_api_init(1);
    const int line = __LINE__ + 1;
    auto buffer = zxcommon::make_tracked<std::uint64_t>(3, "buffer");
    zxmem_api_showBlock();
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr(std::string("24B ---file,line ") + __FILE__ +
                                                  ' ' + std::to_string(line)),
                                        HasSubstr(":24 byte")));
    EXPECT_EQ(buffer[2], 0U);
    EXPECT_EQ(zxcommon::make_tracked<std::uint64_t>(UINT32_MAX / 8 + 1, "wraps to 0"), nullptr);
    buffer.reset();
    EXPECT_TRUE(zxcommon::Fifo(100, "fifo"));
    zxmem_api_showBlock();
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr(":0 byte")));
    zxmem_api_deinit();
    zxmem_api_init(0);
}

TEST(ZxcommonHpp, GuardsNameTheCallerAndGiveBack) {
    zx::test::LogCapture log;
    const auto is_listed = [](const zxlock_ctt* lock) {
        return std::any_of(std::begin(zxlocklist_ctt), std::end(zxlocklist_ctt),
                           [lock](const auto& entry) { return entry.used && entry.lock == lock; });
    };
    const zxlock_ctt* address = nullptr;
    {
        zxcommon::Lock lock("lock");
        address = lock.get();
        EXPECT_TRUE(lock && is_listed(address));
        for (int round = 0; round < 2; ++round) {
            const zxcommon::LockGuard guard(lock);
            EXPECT_EQ(lock.holder(), "TestBody," + std::to_string(__LINE__ - 1));
        }
        EXPECT_EQ(lock.holder(), "nolock");
        std::memset(lock.get()->name, 'n', ZXLOCK_NAME_SIZE);
        EXPECT_EQ(zxcommon::text(lock.get()->name), std::string(ZXLOCK_NAME_SIZE, 'n'));
    }
    EXPECT_FALSE(is_listed(address));
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_FALSE(zxcommon::LockGuard(nullptr));
    EXPECT_EQ(log.take().size(), 1U);  // and no second one for a release
}

TEST(ZxcommonHpp, FifosTakeEmptySpansAndRefuseLongOnes) {
    zx::test::LogCapture log;
    EXPECT_FALSE(zxcommon::Fifo(8, nullptr));
    zxcommon::Fifo fifo(64, "fifo");
    std::array<std::uint8_t, 4> bytes{1, 2, 3, 4};
    EXPECT_EQ(fifo.message_in({}), 0);
    EXPECT_EQ(fifo.message_in(bytes), 4);
    EXPECT_EQ(fifo.message_out({}), 0);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("####name")));
    EXPECT_EQ(fifo.message_out(std::span(bytes).first(3)), -1);
    const std::string caller = "(func, line:TestBody," + std::to_string(__LINE__ - 1) + ")";
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr(caller)));

    fifo.reset();
    const std::span<std::uint8_t> too_long(bytes.data(), std::size_t{1} << 32U);
    EXPECT_EQ(fifo.in(too_long), 0);
    EXPECT_EQ(fifo.out(too_long), 0);
    EXPECT_EQ(fifo.message_in(too_long), -1);
    EXPECT_EQ(fifo.used(), 0);
    EXPECT_EQ(fifo.in(bytes), 4);
    EXPECT_EQ(fifo.message_in(bytes), 4);
    EXPECT_EQ(fifo.out(bytes), 4);
    EXPECT_EQ(fifo.message_out(too_long), 4);  // as much room as can be told
}

struct Controller {
    static void* obey(void* argument) {
        auto* const thread = static_cast<Controller*>(argument)->worker.get();
        zxthread_api_waitCmdStarting(thread, kWait.timeout_ms, kWait.step_ms);
        for (bool is_waiting = true; is_waiting; usleep(100)) {
            const zxcommon::StateGuard guard(thread);
            is_waiting = thread->state == ZXTHREAD_STATE_STARTING;
        }
        while (zxthread_api_isStop(thread) == 0) {
            usleep(100);
        }
        return nullptr;
    }
    zxcommon::Thread worker{"worker", obey, this};
};

TEST(ZxcommonHpp, ThreadsAreStartedStoppedAndCancelled) {
    zx::test::LogCapture log(1);
    Controller controller;
    ASSERT_TRUE(controller.worker);
    ASSERT_TRUE(controller.worker.start(kWait));
    controller.worker.run();
    EXPECT_TRUE(controller.worker.stop(kWait));
    // Waits for an answer that never comes, and is cancelled there: that must not end the program.
    const auto wait = [](void* argument) -> void* {
        return static_cast<Controller*>(argument)->worker.start({600000, 1}) ? argument : nullptr;
    };
    { const zxcommon::Thread waits("waits", wait, &controller); }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_FALSE(zxcommon::Thread("none", nullptr, nullptr));
    EXPECT_FALSE(zxcommon::StateGuard(nullptr));
}

}  // namespace
