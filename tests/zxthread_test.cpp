#include "zxthread.h"

#include <gmock/gmock.h>
#include <sys/prctl.h>

#include <cstring>

#include "log_capture.hpp"
#include "zxlock.h"

namespace {

using testing::ElementsAre;

class ThreadTest : public testing::Test {
protected:
    static void* idle(void*) { return nullptr; }

    zx::test::LogCapture log;
    zxthread_ctt thread{};
};

TEST_F(ThreadTest, RefusesWhatItCannotStart) {
    EXPECT_EQ(zxthread_api_create(&thread, "t", idle, nullptr), 0);
    EXPECT_EQ(zxthread_api_create(&thread, "u", idle, nullptr), -2);
    EXPECT_STREQ(thread.name, "t");
    EXPECT_EQ(zxthread_api_destroy(&thread), 0);
    EXPECT_EQ(zxthread_api_destroy(&thread), -2);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][THREAD]no need to create",
                                        "[ERROR][THREAD]no need to destroy"));
}

TEST_F(ThreadTest, WaitsCountStepsAndStopAnswersAnyOtherState) {
    ASSERT_EQ(zxthread_api_create(&thread, "t", idle, nullptr), 0);
    EXPECT_EQ(zxthread_api_waitStateTimeout(&thread, 3, 3, 0, 0), 1);
    EXPECT_EQ(zxthread_api_waitStateTimeout(&thread, 1, 3, 4, 5), 0);
    EXPECT_EQ(zxthread_api_waitCmdStarting(&thread, 2, 1), 0);
    EXPECT_EQ(zxthread_api_isStop(&thread), 1);
    EXPECT_EQ(thread.state, 5U);
    EXPECT_THAT(log.take(), ElementsAre("[ERROR][THREAD]t:Wait thread start timeout!",
                                        "[ERROR][THREAD]t:Wait thread starting-cmd timeout!",
                                        "[INFO][THREAD]t stop"));
    zxthread_api_destroy(&thread);
    const zxthread_ctt zeroes{};
    EXPECT_EQ(std::memcmp(&thread, &zeroes, sizeof thread), 0);
}

TEST_F(ThreadTest, LogsMisuseOnce) {
    std::strcpy(thread.name, "early");
    EXPECT_EQ(zxthread_api_lock(&thread), -1);
    EXPECT_EQ(zxthread_api_unlock(&thread), -1);
    EXPECT_EQ(zxthread_api_isStop(&thread), 1);
    EXPECT_EQ(zxthread_api_waitStateTimeout(&thread, 1, 1, 0, 0), 0);
    EXPECT_EQ(zxthread_api_waitCmdStarting(&thread, 0, 0), 0);
    EXPECT_EQ(thread.state, 0U);
    EXPECT_THAT(log.take(),
                ElementsAre("[ERROR][THREAD]early:must be call zxthread_api_create first"));
}

TEST_F(ThreadTest, NamesTheCallingThreadAndClearsTheLockTable) {
    char name[16] = {};
    EXPECT_EQ(zxthread_api_setName("a name of twenty bytes"), 0);
    prctl(PR_GET_NAME, name);
    EXPECT_STREQ(name, "a name of twent");
    zxlock_ctt lock{};
    zxlock_api_init(&lock, "listed");
    zxthread_api_envInit();
    EXPECT_EQ(zxlocklist_ctt[0].used, 0);
    EXPECT_EQ(zxlock_api_deinit(&lock), 0);
}

}  // namespace
