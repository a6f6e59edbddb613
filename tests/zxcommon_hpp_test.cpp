#include "zxcommon.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre, testing::HasSubstr;

TEST(ZxcommonHpp, BuffersAreFreedAndKnownByTheCaller) {
    zx::test::LogCapture log;
    zxmem_api_init(1);
    auto buffer = zxcommon::make_tracked<std::uint64_t>(3, "buffer");
    const std::string place = __FILE__ " " + std::to_string(__LINE__ - 1);
    zxmem_api_showBlock();
    EXPECT_THAT(log.take(),
                ElementsAre(HasSubstr("24B ---file,line " + place), HasSubstr(":24 byte")));
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
    const auto used = &zxlocklist_entry_ctt::used;
    const auto before = std::ranges::count(zxlocklist_ctt, 1, used);
    {
        zxcommon::Lock lock("lock");
        EXPECT_TRUE(lock && std::ranges::count(zxlocklist_ctt, 1, used) == before + 1);
        if (const zxcommon::LockGuard guard(lock); guard) {
            EXPECT_EQ(lock.holder(), "TestBody," + std::to_string(__LINE__ - 1));
        }
        EXPECT_EQ(lock.holder(), "nolock");
        EXPECT_EQ(zxcommon::text({'c', 'u', 't'}), "cut");
    }
    EXPECT_EQ(std::ranges::count(zxlocklist_ctt, 1, used), before);
    EXPECT_FALSE(zxcommon::LockGuard(nullptr));
    EXPECT_EQ(log.take().size(), 1U);  // none for a release
}

TEST(ZxcommonHpp, FifosTakeEmptySpansAndRefuseLongOnes) {
    zx::test::LogCapture log;
    EXPECT_FALSE(zxcommon::Fifo(8, nullptr));
    zxcommon::Fifo fifo(64, "fifo");
    std::uint8_t bytes[4] = {1, 2, 3, 4};
    const std::span<std::uint8_t> too_long(bytes, std::size_t{1} << 32U);
    EXPECT_EQ(fifo.message_in({}) + fifo.message_in(bytes) + fifo.message_out({}), 4);
    EXPECT_EQ(log.take().size(), 1U);  // for the one without a name
    EXPECT_EQ(fifo.message_out(std::span(bytes).first(3)), -1);
    const std::string line = std::to_string(__LINE__ - 1);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("line:TestBody," + line)));
    fifo.reset();
    EXPECT_EQ(fifo.in(too_long) + fifo.out(too_long), 0);
    EXPECT_EQ(fifo.message_in(too_long), -1);
    EXPECT_EQ(fifo.in(bytes) + fifo.message_in(bytes) + fifo.used(), 4 + 4 + 12);
    EXPECT_EQ(fifo.out(bytes) + fifo.message_out(too_long), 4 + 4);
}

// A controller that is cancelled while it waits for its worker: that must not end the program.
TEST(ZxcommonHpp, WaitingThreadsCanBeCancelled) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer does not follow a cancelled thread";
#endif
    zx::test::LogCapture log;
    const auto wait = [](void* other) {
        return static_cast<zxcommon::Thread*>(other)->start({600000, 1}) ? other : nullptr;
    };
    const auto rest = [](void* none) { return sleep(600), none; };
    zxcommon::Thread idle("idle", rest, nullptr);
    zxcommon::Thread waiting("waiting", wait, &idle);
    for (bool is_waiting = false; !is_waiting; usleep(1000)) {
        const zxcommon::StateGuard guard(idle.get());
        is_waiting = idle.get()->state == ZXTHREAD_STATE_START;
    }
    EXPECT_FALSE(zxcommon::Thread("none", nullptr, nullptr));
    EXPECT_FALSE(zxcommon::StateGuard(nullptr));
}

}  // namespace
