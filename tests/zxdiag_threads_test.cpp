// Threads and descriptors in the answers of the diagnosis.
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <vector>

#include "asked.hpp"
#include "child.hpp"
#include "process.hpp"
#include "zxcommon.hpp"
#include "zxdiag.h"
#include "zxthread.h"

namespace {

using zx::test::Asked;
using zx::test::comes_true;

class DiagThreads : public testing::Test {
protected:
    ~DiagThreads() override { zxdiag_api_stop(); }
};

struct Worker {
    zxthread_ctt thread{};
    std::atomic<bool> is_busy{false};
    std::atomic<bool> ends{false};

    static void* work(void* argument) {
        auto& self = *static_cast<Worker*>(argument);
        zxthread_api_setName("(a) worker");
        zxthread_api_waitCmdStarting(&self.thread, 60000, 1);
        while (!self.ends) {
            if (!self.is_busy) {
                usleep(1000);
            }
        }
        zxthread_api_isStop(&self.thread);
        return nullptr;
    }
    [[nodiscard]] std::string state() const {
        const Asked answer("threads");
        const cJSON* const its = answer.find("threads", "created_as", thread.name);
        return its != nullptr ? Asked::text(its, "state_name") : "not there";
    }
};

TEST_F(DiagThreads, StatesAreThoseOfTheLastChange) {
    Worker worker;
    zxthread_ctt& thread = worker.thread;
    zxthread_api_create(&thread, "worker of a test", Worker::work, &worker);
    zxdiag_api_start();
    EXPECT_TRUE(comes_true([&] { return worker.state() == "CREATED"; }));  // it looks for commands
    EXPECT_EQ(zxthread_api_waitStateTimeout(&thread, ZXTHREAD_STATE_START, ZXTHREAD_STATE_STARTING,
                                            60000, 1),
              1);
    EXPECT_EQ(worker.state(), "STARTING");
    for (const auto& [state, name] : std::map<std::uint32_t, std::string>{
             {ZXTHREAD_STATE_CREATED, "CREATED"}, {77, "other"}, {ZXTHREAD_STATE_RUN, "RUN"}}) {
        zxthread_api_lock(&thread);
        thread.state = state;
        zxthread_api_unlock(&thread);
        EXPECT_EQ(worker.state(), name);
    }
    const Asked before("threads");
    const cJSON* const its = before.find("threads", "name", "(a) worker");
    ASSERT_NE(its, nullptr);
    EXPECT_EQ(Asked::text(its, "created_as"), "worker of a test");
    EXPECT_EQ(Asked::text(before.find("threads", "tid", gettid()), "state_name"), "");

    worker.is_busy = true;
    const double tid = Asked::number(its, "tid");
    EXPECT_TRUE(comes_true([&] {
        const Asked now("threads");
        const cJSON* const busy = now.find("threads", "tid", tid);
        return Asked::number(busy, "cpu_us") > Asked::number(its, "cpu_us") + 50000 &&
               Asked::number(busy, "cpu_percent") > 0;
    }));

    EXPECT_EQ(zx::test::in_child([&] {
                  zxdiag_api_start();
                  const Asked in_child("threads");
                  return std::to_string(in_child.size("threads"));
              }),
              "2");  // with the clock of the diagnosis

    worker.is_busy = false;
    worker.ends = true;  // it ends by itself, while its state is still RUN
    EXPECT_TRUE(comes_true([&] {
        const Asked now("threads");
        return cJSON_IsTrue(cJSON_GetObjectItem(
                   now.find("threads", "created_as", "worker of a test"), "has_ended")) != 0;
    }));
    zxthread_api_lock(&thread);  // after the worker's last use
    zxthread_api_unlock(&thread);
    zxthread_api_destroy(&thread);
    EXPECT_EQ(worker.state(), "not there");
}

// How many more of each kind are open than before.
class Opened {
public:
    std::map<std::string, double> now() const {
        std::map<std::string, double> more = kinds();
        for (const auto& [kind, count] : before_) {
            if ((more[kind] -= count) == 0) {
                more.erase(kind);
            }
        }
        return more;
    }
    static std::map<std::string, double> kinds() {
        const Asked answer("descriptors");
        std::map<std::string, double> found{{"all", Asked::number(answer.whole(), "open")}};
        const cJSON* kind = nullptr;
        cJSON_ArrayForEach(kind, cJSON_GetObjectItem(answer.whole(), "kinds")) {
            found[Asked::text(kind, "kind")] = Asked::number(kind, "count");
        }
        return found;
    }

private:
    std::map<std::string, double> before_ = kinds();
};

TEST_F(DiagThreads, DescriptorsAreCountedByKind) {
    const Opened opened;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const std::vector<zxcommon::Descriptor> all = [&] {
        std::vector<zxcommon::Descriptor> made;
        for (const int fd : {ends[0], ends[1], socket(AF_INET, SOCK_STREAM, 0),
                             socket(AF_INET6, SOCK_DGRAM, 0), socket(AF_UNIX, SOCK_SEQPACKET, 0),
                             eventfd(0, 0), epoll_create1(0), memfd_create("zx", 0)}) {
            made.emplace_back(fd);
        }
        return made;
    }();
    using testing::Pair;
    EXPECT_THAT(opened.now(),
                testing::UnorderedElementsAre(Pair("all", 8), Pair("pipe", 2), Pair("tcp", 1),
                                              Pair("udp", 1), Pair("unix", 1), Pair("eventfd", 1),
                                              Pair("epoll", 1), Pair("file", 1)));
}

// Then not even the directory of the descriptors can be opened.
TEST_F(DiagThreads, DescriptorsAreCountedWhenTheLimitIsReached) {
    EXPECT_EQ(zx::test::in_child([] {
                  rlimit limit{};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 10000);
                  setrlimit(RLIMIT_NOFILE, &limit);
                  while (dup(STDERR_FILENO) >= 0) {
                  }
                  const Asked answer("descriptors");
                  return std::to_string(Asked::number(answer.whole(), "limit") ==
                                        static_cast<double>(limit.rlim_cur)) +
                         std::to_string(Asked::number(answer.whole(), "open") ==
                                        static_cast<double>(limit.rlim_cur)) +
                         Asked::text(Asked("threads").whole(), "error");
              }),
              "11Too many open files");
}

}  // namespace
