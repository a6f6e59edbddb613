// Locks as the diagnosis sees them: what is counted, who waits for whom, deadlocks and inversions.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "child.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "zxdiag.h"
#include "zxlock.h"

#ifdef ZX_TSAN
// These tests do on purpose what this sanitizer reports, and start threads after a fork. Locks that
// another thread releases confuse it.
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
    return "detect_deadlocks=0:die_after_fork=0";
}
constexpr bool kReleasesElsewhere = false;
#else
constexpr bool kReleasesElsewhere = true;
#endif

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zx::test::comes_true;
using zx::test::in_child;
using zx::test::LogCapture;

class Lock {
public:
    explicit Lock(const char* name) { zxlock_api_init(&record_, name); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { zxlock_api_deinit(&record_); }

    void obtain(const char* func, int line) { zxlock_api_obtain(&record_, func, line); }
    void release() { zxlock_api_release(&record_, "", 0); }
    zxlock_ctt* record() { return &record_; }

private:
    zxlock_ctt record_{};
};

std::string ask(const char* question) {
    char* answer = zxdiag_api_ask(question);
    std::string text = answer;
    zxdiag_api_free(&answer);
    return text;
}

// What the answer says about one lock.
std::string about(const std::string& name) {
    const std::string all = ask("locks");
    const std::size_t at = all.find("{\"name\":\"" + name + "\"");
    return at == std::string::npos ? "" : all.substr(at, all.find("]}", at) - at);
}

void nest(Lock& outer, int outer_line, Lock& inner, int inner_line) {
    outer.obtain("outer", outer_line);
    inner.obtain("inner", inner_line);
    inner.release();
    outer.release();
}

class DiagLocks : public testing::Test {
protected:
    DiagLocks() { zxdiag_api_start(); }
    ~DiagLocks() override { zxdiag_api_stop(); }

    LogCapture log{4};
};

TEST_F(DiagLocks, CountsTakingsWaitsAndHolds) {
    zxdiag_api_stop();
    Lock old("made before");
    zxdiag_api_start();
    EXPECT_EQ(about("made before"), "");
    for (int i = 0; i < 3; ++i) {
        old.obtain("f", i);
        old.release();
    }
    EXPECT_THAT(about("made before"),
                AllOf(HasSubstr("\"held\":false"), HasSubstr("\"taken\":3,\"contended\":0")));

    old.obtain("holding", 7);
    std::thread other([&] {
        prctl(PR_SET_NAME, "the waiter");
        old.obtain("waiting", 8);
        old.release();
    });
    EXPECT_TRUE(comes_true(
        [&] { return about("made before").find("\"place\":\"waiting,8\"") != std::string::npos; }));
    EXPECT_THAT(about("made before"),
                AllOf(HasSubstr("\"held\":true,\"holder\":\"holding,7\",\"holder_tid\":" +
                                std::to_string(gettid()) + ","),
                      HasSubstr("\"thread\":\"the waiter\"")));
    EXPECT_THAT(ask("waits"), AllOf(HasSubstr("\"lock\":\"made before\",\"holder\":\"holding,7\""),
                                    HasSubstr("\"cycles\":[]"), HasSubstr("\"inversions\":[]")));
    usleep(60000);
    old.release();
    other.join();
    EXPECT_THAT(about("made before"),
                AllOf(HasSubstr("\"held\":false,\"taken\":5,\"contended\":1,"),
                      ContainsRegex("\"longest_wait_us\":[0-9]{5}"),
                      ContainsRegex("\"longest_hold_us\":[0-9]{5}"), HasSubstr("\"waiting\":[")));
    EXPECT_THAT(ask("waits"), HasSubstr("\"waits\":[]"));

    // Released by another thread, and left behind by a thread that has ended.
    if (kReleasesElsewhere) {
        std::thread([&] { old.obtain("gone", 9); }).join();
        EXPECT_THAT(about("made before"), HasSubstr("\"holder_thread\":\"(ended)\""));
        old.release();
        EXPECT_THAT(about("made before"), HasSubstr("\"held\":false,\"taken\":6,"));
    }
    zxdiag_api_stop();
    old.obtain("unseen", 1);
    zxdiag_api_start();
    EXPECT_THAT(about("made before"), HasSubstr("\"held\":false,"));
    old.release();

    for (int i = 0; i < 100000; ++i) {
        Lock passing("passing");
        nest(old, 1, passing, 2);
    }
    EXPECT_EQ(about("passing"), "");
    EXPECT_THAT(ask("locks"), HasSubstr("\"left_out\":0}"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(DiagLocks, ReportsAnInversionBeforeItBlocks) {
    Lock a("A");
    Lock b("B");
    Lock c("C");
    for (int i = 0; i < 100; ++i) {  // one order, also when they are released in another
        nest(a, 1, b, 2);
        a.obtain("outer", 3);
        c.obtain("inner", 4);
        a.release();
        b.obtain("alone", 5);  // A is not held
        b.release();
        c.release();
        std::thread([&] { nest(a, 1, b, 2); }).join();
    }
    // Another thread releases A: then B is not taken inside it.
    if (kReleasesElsewhere) {
        b.obtain("outer", 6);
        std::thread([&] { b.release(); }).join();
        a.obtain("alone", 7);
        a.release();
    }
    EXPECT_THAT(ask("waits"), HasSubstr("\"inversions\":[]"));
    EXPECT_THAT(log.take(), IsEmpty());

    std::thread([&] { nest(b, 12, a, 13); }).join();
    nest(b, 14, a, 15);
    const std::string text =
        "B, held at outer:12, then A at inner:13, but A, held at outer:1, then B at inner:2";
    EXPECT_THAT(log.take(),
                ElementsAre("[WARN][DIAG]the order of locks is not the same everywhere: " + text));
    EXPECT_THAT(ask("waits"), AllOf(HasSubstr("\"text\":\"" + text + "\""),
                                    HasSubstr("\"first\":{\"outer\":\"B\",\"outer_place\":\"outer,"
                                              "12\",\"inner\":\"A\",\"inner_place\":\"inner,13\"}"),
                                    HasSubstr("\"second\":{\"outer\":\"A\"")));

    {  // over a third lock, and what a lock that is gone has left does not count
        Lock d("D");
        nest(c, 1, d, 2);
        {
            Lock gone("gone");
            nest(d, 1, gone, 2);
        }
        Lock again("again");
        nest(again, 1, c, 2);
        EXPECT_THAT(log.take(), IsEmpty());
        nest(d, 3, again, 4);
        EXPECT_THAT(log.take(),
                    ElementsAre(HasSubstr("D, held at outer:3, then again at inner:4, but again, "
                                          "held at outer:1, then C at inner:2, but C, held at")));
    }
}

// Threads hang for ever in these children, which end without them.
class DiagDeadlock : public testing::Test {
protected:
    LogCapture log{4};

    // `work` leaves a deadlock. Returns what the log and the answer say about it.
    template <typename Work>
    std::string report_of(Work work) {
        return in_child([&] {
            zxdiag_api_start();
            work();
            std::vector<std::string> lines;
            comes_true([&] {
                for (const std::string& line : log.take()) {
                    lines.push_back(line);
                }
                return !lines.empty() && lines.back().find("[ERROR]") != std::string::npos;
            });
            usleep(200000);  // nobody reports it again
            for (const std::string& line : log.take()) {
                lines.push_back(line);
            }
            std::string all;
            for (const std::string& line : lines) {
                all += line.find("[ERROR]") != std::string::npos ? line + "\n" : "";
            }
            return all + ask("waits");
        });
    }
};

TEST_F(DiagDeadlock, IsNamedWithAllItsThreads) {
    const std::string report = report_of([] {
        static std::array<Lock, 3> locks{Lock("L0"), Lock("L1"), Lock("L2")};
        static std::atomic<int> ready{0};
        for (int i = 0; i < 3; ++i) {
            std::thread([i] {
                prctl(PR_SET_NAME, std::array{"Anna", "Bert", "Cleo"}[static_cast<unsigned>(i)]);
                locks[static_cast<unsigned>(i)].obtain("holds", i);
                ++ready;
                while (ready < 3) {
                    usleep(100);
                }
                locks[static_cast<unsigned>(i + 1) % 3].obtain("wants", 10 + i);
            }).detach();
        }
    });
    EXPECT_THAT(report, ContainsRegex("^\\[ERROR\\]\\[DIAG\\]deadlock: [^\n]*\n[{]"));  // once
    for (const char* const part :
         {" for L1, held at holds:1 by Bert", " for L2, held at holds:2 by Cleo",
          " for L0, held at holds:0 by Anna", ", which waits for L"}) {
        EXPECT_THAT(report, HasSubstr(part));
    }
    EXPECT_THAT(report, HasSubstr("\"thread\":\"Bert\",\"lock\":\"L2\",\"place\":\"wants,11\","
                                  "\"held_by\":\"Cleo\",\"held_at\":\"holds,2\""));
}

TEST_F(DiagDeadlock, MayHaveOneThread) {
    EXPECT_THAT(report_of([] {
                    static Lock lock("itself");
                    std::thread([] {
                        prctl(PR_SET_NAME, "Dora");
                        lock.obtain("first", 1);
                        lock.obtain("second", 2);
                    }).detach();
                }),
                HasSubstr("deadlock: Dora waits for itself, held at first:1 by Dora\n"));
}

// Threads that take bare mutexes, which the diagnosis does not see, and threads that meet all the
// time are no deadlock.
TEST_F(DiagLocks, ReportNoDeadlockFalsely) {
    Lock a("A");
    a.obtain("stale", 1);
    pthread_mutex_unlock(&a.record()->mutex);
    std::thread bare([&] {
        pthread_mutex_lock(&a.record()->mutex);
        usleep(300000);
        pthread_mutex_unlock(&a.record()->mutex);
    });
    while (pthread_mutex_trylock(&a.record()->mutex) == 0) {
        pthread_mutex_unlock(&a.record()->mutex);
        usleep(100);
    }
    a.obtain("seems to hold it", 2);
    a.release();
    bare.join();

    Lock b("B");
    Lock c("C");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int k = 0; k < 5000; ++k) {
                nest(b, i, c, k);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(log.take(), IsEmpty());
    EXPECT_THAT(ask("waits"), HasSubstr("\"cycles\":[]"));
    EXPECT_THAT(about("B"), HasSubstr("\"taken\":20000,"));
}

// A child begins with nothing, although the locks of its parent are there.
TEST_F(DiagLocks, BeginAnewInAChild) {
    Lock lock("inherited");
    lock.obtain("parent", 1);
    EXPECT_THAT(in_child([&] {
                    std::string all = ask("locks");
                    zxdiag_api_start();
                    all += ask("locks");
                    Lock own("own");
                    own.obtain("child", 2);
                    return all + about("own");
                }),
                AllOf(Not(HasSubstr("inherited")), HasSubstr("\"taken\":1")));
    lock.release();
}

}  // namespace
