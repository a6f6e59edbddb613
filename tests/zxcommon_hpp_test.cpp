#include "zxcommon.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
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
    EXPECT_EQ(log.take().size(), 1U);  // a release logs nothing
}

TEST(ZxcommonHpp, FifosTakeEmptySpansAndRefuseLongOnes) {
    zx::test::LogCapture log;
    EXPECT_FALSE(zxcommon::Fifo(8, nullptr));
    zxcommon::Fifo fifo(64, "fifo");
    std::uint8_t bytes[4] = {1, 2, 3, 4};
    const std::span<std::uint8_t> too_long(bytes, std::size_t{1} << 32U);
    EXPECT_EQ(fifo.message_in({}) + fifo.message_in(bytes) + fifo.message_out({}), 4);
    EXPECT_EQ(log.take().size(), 1U);  // the FIFO without a name
    EXPECT_EQ(fifo.message_out(std::span(bytes).first(3)), -1);
    const std::string line = std::to_string(__LINE__ - 1);
    EXPECT_THAT(log.take(), ElementsAre(HasSubstr("line:TestBody," + line)));
    fifo.reset();
    EXPECT_EQ(fifo.in(too_long) + fifo.out(too_long), 0);
    EXPECT_EQ(fifo.message_in(too_long), -1);
    EXPECT_EQ(fifo.in(bytes) + fifo.message_in(bytes) + fifo.used(), 4 + 4 + 12);
    EXPECT_EQ(fifo.out(bytes) + fifo.message_out(too_long), 4 + 4);
}

// A controller is cancelled while it waits for its worker. That must not end the program.
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

TEST(ZxcommonHpp, WorkersAnswerEveryCommand) {
    zx::test::LogCapture log;
    struct Told {
        zxthread_ctt record{};
        std::atomic<int> rounds{0};
    };
    const auto work = [](void* argument) -> void* {
        auto& told = *static_cast<Told*>(argument);
        zxcommon::run_worker(&told.record, {5000, 1}, [&](zxcommon::StopRequest& stop) {
            for (; !stop.seen(); usleep(100)) {
                ++told.rounds;
            }
        });
        return nullptr;
    };
    for (const bool is_started : {true, false}) {
        Told told;
        ASSERT_EQ(zxthread_api_create(&told.record, "worker", work, &told), 0);
        const auto tell = [&](std::uint32_t command, std::uint32_t answer) {
            return zxthread_api_waitStateTimeout(&told.record, command, answer, 5000, 1);
        };
        EXPECT_EQ(tell(ZXTHREAD_STATE_START, ZXTHREAD_STATE_STARTING), 1);
        if (is_started) {
            EXPECT_EQ(tell(ZXTHREAD_STATE_RUN, ZXTHREAD_STATE_RUN), 1);
            while (told.rounds == 0) {
                usleep(1000);
            }
        }
        EXPECT_EQ(tell(ZXTHREAD_STATE_NONE, ZXTHREAD_STATE_STOPPED), 1);
        zxthread_api_destroy(&told.record);
        EXPECT_EQ(told.rounds > 0, is_started);
    }
}

TEST(ZxcommonHpp, DescriptorsAreClosedOnce) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    zxcommon::Descriptor reading(ends[0]);
    zxcommon::Descriptor writing(ends[1]);
    zxcommon::Epoll epoll;
    ASSERT_TRUE(epoll && epoll.add(reading.get(), EPOLLIN));
    epoll_event room[2];
    EXPECT_TRUE(epoll.wait(room, 0).empty());
    ASSERT_EQ(write(writing.get(), "x", 1), 1);
    ASSERT_EQ(epoll.wait(room).size(), 1U);
    EXPECT_EQ(room[0].data.fd, reading.get());
    EXPECT_TRUE(epoll.mod(reading.get(), EPOLLET) && epoll.del(reading.get()));
    writing = std::move(reading);
    EXPECT_FALSE(reading);
    EXPECT_EQ(writing.get(), ends[0]);
    EXPECT_EQ(close(ends[1]), -1) << "it was closed by the one that took its place";
}

TEST(ZxcommonHpp, LinesHaveTheFormOfTheLibrarys) {
    using zxcommon::Level;
    zx::test::LogCapture log(4);
    zxcommon::log({Level::notice, "TAG"}, "%d of %s", 1, "two");
    zxcommon::log({Level::debug, "TAG"}, "above the level");
    const std::string longer(3000, 'x');
    zxcommon::log({Level::error, "TAG"}, "%s", longer.c_str());
    zxlog_api_setPrintLineFunc(1);
    zxcommon::log({Level::info, "TAG"}, "here");
    const std::string place = "[TestBody " + std::to_string(__LINE__ - 1) + "]";
    zxlog_api_setPrintLineFunc(0);
    zxlog_api_setFilterTags("OTHER,TAG");
    zxcommon::log({Level::error, "TAG"}, "filtered");
    zxlog_api_setFilterTags("");
    EXPECT_THAT(log.take(), ElementsAre("[NOTICE][TAG]1 of two", "[ERROR][TAG]" + longer,
                                        "[INFO][TAG]" + place + "here"));
}

}  // namespace
