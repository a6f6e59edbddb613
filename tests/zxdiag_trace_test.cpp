// What a trace tells about the waits of a program.
#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <map>
#include <string>

#include "diag_client.hpp"
#include "files.hpp"
#include "zxdiag.h"
#include "zxepoll.h"
#include "zxfifo.h"
#include "zxlock.h"
#include "zxt.h"

namespace {

using testing::HasSubstr;

double number(const cJSON* object, const char* key) {
    return cJSON_GetNumberValue(cJSON_GetObjectItem(object, key));
}

TEST(DiagTrace, ShowsWhatEachThreadWaitedFor) {
    const zx::test::Folder folder;
    const std::string path = folder.path() + "/socket";
    ASSERT_EQ(zxdiag_api_serve(path.c_str()), 0);
    zx::test::DiagClient client(path);
    zx::test::DiagClient other(path);
    client.send_question("trace seconds=1");
    const auto is_taken = [&] {
        return other.ask("trace seconds=60").find("somebody traces") != std::string::npos;
    };
    ASSERT_TRUE(is_taken());
    EXPECT_THAT(other.ask("trace seconds=61"), HasSubstr("\"error\":"));
    const int epfd = zxepoll_innerapi_open(1, __func__, __LINE__);
    epoll_event event{};
    EXPECT_EQ(zxepoll_wait_timeout(epfd, &event, 1, 20), 0);
    zxfifoblock_ctt* fifo = zxfifo_api_blockInit(100, "queue");
    zxlock_ctt outer{};
    zxlock_api_init(&outer, "outer");
    zxlock_api_obtain(&outer, __func__, __LINE__);
    EXPECT_EQ(zxfifo_api_blockIn(fifo, "hello", 5, nullptr), 5);
    zxlock_api_release(&outer, __func__, __LINE__);
    char said[16] = {};
    EXPECT_EQ(zxt_innerapi_cmdReadByPipe("sleep 0.02; echo x", said, sizeof said), 2);

    cJSON* const answer = cJSON_Parse(client.line().c_str());
    ASSERT_NE(answer, nullptr);
    std::map<std::string, const cJSON*> events;
    const cJSON* each = nullptr;
    cJSON_ArrayForEach(each, cJSON_GetObjectItem(answer, "traceEvents")) {
        if (number(each, "tid") == gettid()) {
            events[cJSON_GetStringValue(cJSON_GetObjectItem(each, "name"))] = each;
        }
    }
    ASSERT_TRUE(events.contains("queue") && events.contains("outer"));
    EXPECT_EQ(number(cJSON_GetObjectItem(events["queue"], "args"), "bytes"), 5);
    EXPECT_LE(number(events["queue"], "dur"), number(events["outer"], "dur"));
    EXPECT_LE(number(events["outer"], "ts"), number(events["queue"], "ts"));
    ASSERT_TRUE(events.contains("zxepoll_wait_timeout") && events.contains("sleep 0.02; echo x"));
    const cJSON* const wait = events["zxepoll_wait_timeout"];
    const cJSON* const command = events["sleep 0.02; echo x"];
    EXPECT_GE(number(wait, "dur"), 19000);
    EXPECT_EQ(number(cJSON_GetObjectItem(wait, "args"), "descriptor"), epfd);
    EXPECT_GE(number(command, "dur"), 19000);
    EXPECT_GE(number(command, "ts"), number(wait, "ts") + number(wait, "dur"));
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(command, "ph")), "X");
    EXPECT_EQ(number(answer, "dropped"), 0);
    cJSON_Delete(answer);
    close(epfd);
    zxfifo_api_blockDeinit(&fifo);
    zxlock_api_deinit(&outer);
    zxdiag_api_stop();
}

}  // namespace
