#include "zxlock.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(LockTest, NotesItsHolder) {
    zxlock_ctt lock{};
    zxlock_api_init(&lock, "test");
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
    pthread_mutex_unlock(&lock.mutex);  // without the record's knowledge
    zxlock_api_obtain(&lock, "short", 2);
    EXPECT_STREQ(lock.holder, "short,2");
    zxlock_api_release(&lock, "short", 3);
    zxlock_api_deinit(&lock);
}

}  // namespace
