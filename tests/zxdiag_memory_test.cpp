// The tracked buffers as the diagnosis counts them. The numbers themselves are compared with a
// model by the fuzz target of the allocator.
#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "files.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "zxdiag.h"
#include "zxmem.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

std::string ask(const std::string& question) {
    char* text = zxdiag_api_ask(question.c_str());
    std::string answer = text;
    zxdiag_api_free(&text);
    return answer;
}

double number(const std::string& answer, const char* key) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(cJSON_Parse(answer.c_str()),
                                                                 cJSON_Delete);
    const cJSON* const first = cJSON_GetArrayItem(cJSON_GetObjectItem(object.get(), "places"), 0);
    const cJSON* item = cJSON_GetObjectItem(first, key);
    item = item != nullptr ? item : cJSON_GetObjectItem(object.get(), key);
    return item != nullptr ? item->valuedouble : -1;
}

class DiagMemory : public testing::Test {
protected:
    DiagMemory() { zxmem_api_init(1); }
    ~DiagMemory() override {
        for (void*& buffer : buffers) {
            zxmem_api_free(&buffer);
        }
        zxdiag_api_stop();
        zxmem_api_deinit();
    }
    void make(int count, std::uint32_t size, const std::string& name, std::uint32_t line = 1) {
        for (int i = 0; i < count; ++i) {
            buffers.push_back(zxmem_api_malloc(size, name.c_str(), "test", line));
        }
    }

    zx::test::LogCapture log{3};
    std::vector<void*> buffers;
};

// Buffers come and go in two threads, while a third one switches the diagnosis and asks.
TEST_F(DiagMemory, CountsWhatWasMadeBeforeAndMeanwhile) {
    make(2000, 100, "before");
    std::atomic<bool> is_over{false};
    std::vector<void*> own[2];
    std::vector<std::thread> threads;
    for (auto& held : own) {
        threads.emplace_back([&, size = 0U]() mutable {
            while (!is_over || held.size() < 500) {
                held.push_back(zxmem_api_malloc(size % 7, "own", "test", size % 3));
                ++size;
                if (held.size() > 600) {  // also those from the middle of the list
                    const std::size_t at = size * 7919 % held.size();
                    std::swap(held[at], held.back());
                    zxmem_api_free(&held.back());
                    held.pop_back();
                }
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 60; ++i) {
            zxdiag_api_start();
            ask("memory mark=m since=m");
            ask("memory by=name mark=m");
            if (i % 10 != 9) {
                zxdiag_api_stop();
            }
            zxmem_api_free(&buffers[static_cast<std::size_t>(i)]);
        }
        is_over = true;
    });
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string answer = ask("memory by=name");
    EXPECT_THAT(answer, HasSubstr("\"state\":\"complete\""));
    EXPECT_EQ(number(answer, "buffers"), 1940);  // the first place has most bytes
    EXPECT_EQ(number(answer, "bytes"), 194000);
    EXPECT_THAT(answer, HasSubstr("{\"state\":\"complete\",\"buffers\":" +
                                  std::to_string(1940 + own[0].size() + own[1].size())));
    for (auto& held : own) {
        buffers.insert(buffers.end(), held.begin(), held.end());
    }
}

TEST_F(DiagMemory, KeepsAFewMarks) {
    EXPECT_THAT(ask("memory mark=0"), HasSubstr("\"error\":\"the numbers are not complete"));
    zxdiag_api_start();
    for (int i = 0; i < 9; ++i) {
        ask("memory mark=" + std::to_string(i));
        make(1, 1000000, "big");
        usleep(10);  // the marks have different ages
    }
    EXPECT_THAT(ask("memory since=0"), HasSubstr("no such mark"));  // the ninth took its place
    EXPECT_EQ(number(ask("memory since=1"), "more_bytes"), 8000000);
    EXPECT_EQ(number(ask("memory since=8 mark=1"), "more_buffers"), 1);
    EXPECT_EQ(number(ask("memory since=1"), "more_buffers"), 0);
    for (const char* const wrong :
         {"mark=", "mark=a_name_that_is_longer_than_31_bytes", "by=size"}) {
        EXPECT_THAT(ask(std::string("memory ") + wrong), HasSubstr("\"error\":")) << wrong;
    }
    // Any growth: the time of the sample is unknown here.
    EXPECT_TRUE(zx::test::comes_true([&] {
        make(1, 1000000, "big");
        return number(ask("memory"), "bytes_per_s") > 0;
    }));
}

// What has no room is in the sums. A place without buffers gives its room to another.
TEST_F(DiagMemory, LeavesOutWhatHasNoRoom) {
    zxdiag_api_start();
    for (std::uint32_t i = 0; i < 5000; ++i) {
        make(1, 10, "place " + std::to_string(i), i);
    }
    const std::string full = ask("memory");
    EXPECT_THAT(full, HasSubstr("{\"state\":\"complete\",\"buffers\":5000,\"bytes\":50000,"));
    EXPECT_THAT(full, MatchesRegex(".*\"left_out\":9[0-9][0-9],.*"));
    for (void*& buffer : buffers) {
        zxmem_api_free(&buffer);
    }
    buffers.clear();
    make(3, 10, "a place of its own");
    const std::string later = ask("memory");
    EXPECT_EQ(number(later, "buffers"), 3);
    EXPECT_THAT(later, HasSubstr("\"places\":[{\"name\":\"a place of its own\","));
    EXPECT_THAT(later, HasSubstr("\"left_out\":0,"));
}

// The program holds nothing, or what its argument says, when it ends.
std::string said_at_the_end(const std::string& what, const char* wish = "ZX_DIAG_LEAKS=1 ") {
    const zx::test::Folder folder;
    const std::string file = folder.path() + "/log";
    EXPECT_EQ(zx::test::Process(wish + std::string(ZX_LEAKS) + " " + file + " " + what).wait(), 0);
    return zx::test::content_of(file);
}

TEST(DiagLeaks, SaysAtTheEndWhatIsStillHeld) {
    const auto lines = MatchesRegex(
        "[^\n]*\\[DIAG\\]still held: 'big' of leaks 7: 2 buffers, 2000 bytes, the oldest for 0 "
        "s\r\n"
        "[^\n]*\\[DIAG\\]still held: 'small' of leaks 8: 1 buffers, 10 bytes, the oldest for 0 "
        "s\r\n"
        "[^\n]*\\[DIAG\\]still held at the end: 3 buffers, 2010 bytes\r\n");
    EXPECT_THAT(said_at_the_end("held"), lines);
    EXPECT_THAT(said_at_the_end("held torn-down"), lines);
    EXPECT_THAT(said_at_the_end("held counting"), lines);
    EXPECT_EQ(said_at_the_end("held", ""), "");
    EXPECT_EQ(said_at_the_end("freed"), "");  // by an object that lives as long as the program
    EXPECT_THAT(said_at_the_end("untracked held"), HasSubstr("does not track its buffers"));
    EXPECT_THAT(said_at_the_end("held locked"), HasSubstr("the list of the buffers is in use"));
}

}  // namespace
