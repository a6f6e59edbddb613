#include "zxlock.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

#include "log_capture.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LockTest : public testing::Test {
protected:
    LockTest() { zxlock_api_init(&lock, "test"); }
    ~LockTest() override { zxlock_api_deinit(&lock); }

    [[nodiscard]] auto listed() const {
        return std::ranges::count(zxlocklist_ctt, &lock, &zxlocklist_entry_ctt::lock);
    }

    zx::test::LogCapture log;
    zxlock_ctt lock{};
};

TEST_F(LockTest, IsListedOnceFromInitToDeinit) {
    EXPECT_EQ(zxlock_api_init(&lock, "other"), 0);
    EXPECT_EQ(listed(), 1);
    EXPECT_STREQ(lock.name, "test");
    EXPECT_EQ(zxlock_api_deinit(&lock), 0);
    EXPECT_EQ(listed(), 0);
    const zxlock_ctt zeroes{};
    EXPECT_EQ(std::memcmp(&lock, &zeroes, sizeof lock), 0);
    EXPECT_EQ(zxlock_api_deinit(&lock), 0);
    zxlock_api_init(&lock, nullptr);
    EXPECT_STREQ(lock.name, "unknown");
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(LockTest, NotesItsHolder) {
    for (const std::size_t length : {0U, 3U, 4U, 7U, 8U, 15U, 16U, 31U, 32U, 33U, 127U, 200U}) {
        for (const int line : {0, 7, 10, 99, 100, 999, 1000, 9999, 10000, -12}) {
            const std::string func(length, 'f');
            SCOPED_TRACE(testing::Message() << length << " " << line);
            std::string digits = std::to_string(line);
            digits.insert(0, 1, ',');
            ASSERT_EQ(zxlock_api_obtain(&lock, func.c_str(), line), 0);
            EXPECT_EQ(lock.locked, 1);
            EXPECT_EQ(lock.holder, func.substr(0, sizeof lock.holder - 1 - digits.size()) + digits);

            ASSERT_EQ(zxlock_api_release(&lock, func.c_str(), line), 0);
            EXPECT_EQ(lock.locked, 0);
            EXPECT_EQ(std::string(lock.holder, sizeof lock.holder),
                      "nolock" + std::string(sizeof lock.holder - 6, '\0'));
        }
    }
    zxlock_api_obtain(&lock, std::string(60, 'l').c_str(), 1);
    pthread_mutex_unlock(&lock.mutex);  // behind the record's back
    zxlock_api_obtain(&lock, "short", 2);
    EXPECT_STREQ(lock.holder, "short,2");
    zxlock_api_release(&lock, "short", 3);
}

TEST_F(LockTest, RefusesWhatIsNoLock) {
    std::uint32_t word = 7;
    zxlock_ctt unused{};
    zxlock_ctt misused{};
    misused.report_misuse = 1;
    std::memset(misused.name, 'm', sizeof misused.name);
    for (zxlock_ctt* const which : {&unused, &misused}) {
        EXPECT_EQ(zxlock_api_obtain(which, "caller", 12), -1);
        EXPECT_EQ(zxlock_api_release(which, "caller", 12), -1);
        EXPECT_EQ(zxlock_api_waitStateTimeout(which, &word, 1, 1, 1, 1), -1);
        EXPECT_EQ(zxlock_api_waitCmdStarting(which, &word, 1, 1), -1);
    }
    EXPECT_EQ(word, 7U);
    const auto lines = log.take();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[1], "[ERROR][THREAD][caller 12]" + std::string(128, 'm') +
                            ":must be call zxthread_api_create first");
}

TEST_F(LockTest, WaitsCountSteps) {
    std::uint32_t state = 0;
    EXPECT_EQ(zxlock_api_waitStateTimeout(&lock, &state, 4, 4, 0, 0), 1);
    for (const std::uint32_t step : {0U, 5U}) {
        EXPECT_EQ(zxlock_api_waitStateTimeout(&lock, &state, 1, 2, 5, step), 0);
    }
    EXPECT_EQ(state, 1U);
    state = 2;
    EXPECT_EQ(zxlock_api_waitCmdStarting(&lock, &state, 0, 0), 1) << "it looks before it sleeps";
    ASSERT_EQ(state, 3U);
    EXPECT_EQ(zxlock_api_waitCmdStarting(&lock, &state, 2, 1), 0);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][THREAD]test:Wait thread start timeout!",
                                        "[ERROR][THREAD]test:Wait thread start timeout!",
                                        "[ERROR][THREAD]test:Wait thread starting-cmd timeout!"));

    std::thread answer([&] { EXPECT_EQ(zxlock_api_waitCmdStarting(&lock, &state, 9999, 1), 1); });
    EXPECT_EQ(zxlock_api_waitStateTimeout(&lock, &state, 2, 3, 0xFFFFFFFF, 1), 1);
    answer.join();
    EXPECT_STREQ(lock.holder, "nolock");
}

}  // namespace
