#include "zxcommon.hpp"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

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

// A controller may be cancelled while it waits for its worker, which must not end the program.
static_assert(!noexcept(std::declval<zxcommon::Thread&>().start({})) &&
              !noexcept(std::declval<zxcommon::Thread&>().stop({})));

TEST(ZxcommonHpp, WorkersAnswerEveryCommand) {
    zx::test::LogCapture log;
    struct Worker {
        static void* work(void* argument) {
            auto& self = *static_cast<Worker*>(argument);
            const auto body = [&](zxcommon::StopRequest& stop) {
                for (; !stop.seen(); usleep(100)) {
                    ++self.rounds;
                }
            };
            zxcommon::run_worker(self.thread.get(), {5000, 1}, body);
            return nullptr;
        }
        std::atomic<int> rounds{0};
        zxcommon::Thread thread{"worker", work, this};
    };
    for (const bool is_to_run : {true, false}) {
        Worker worker;
        EXPECT_TRUE(worker.thread.start({5000, 1}));
        if (is_to_run) {
            worker.thread.run();
            while (worker.rounds == 0) {
                usleep(1000);
            }
        }
        EXPECT_TRUE(worker.thread.stop({5000, 1}));
        EXPECT_EQ(worker.rounds > 0, is_to_run);
    }
    log.take();
    EXPECT_FALSE(zxcommon::Thread("none", nullptr, nullptr) || zxcommon::StateGuard(nullptr));
    EXPECT_EQ(log.take().size(), 2U);  // none for the end of what was not there
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
