// Threads: the processor time of all, and the state words of those that zxthread made.
#include "zxdiag/threads.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "internal/mutex.hpp"
#include "internal/poll.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/growth.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/known.hpp"
#include "zxdiag/program_memory.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxdiag/waits.hpp"
#include "zxthread.h"

namespace zx::diag {
namespace {

constexpr std::size_t kMostWorkers = 1024;
constexpr std::size_t kNameRoom = ZXTHREAD_NAME_SIZE + 8;  // a multiple of 8, with a NUL
constexpr auto kRelaxed = std::memory_order_relaxed;

constinit Mutex g_asking;

// Changed by a thread that holds the mutex of the record, so by one at a time.
struct alignas(64) Worker {
    std::atomic<const void*> record{};
    std::atomic<std::uint64_t> id{};
    std::atomic<std::uint32_t> state{};
    std::atomic<pid_t> tid{};
    std::atomic<std::int64_t> since_us{};  // when it was first seen
    SharedText<kNameRoom> name;

    std::uint64_t round ZX_GUARDED_BY(g_asking){};  // of the last answer that has this thread
};

constinit Known<Worker, kMostWorkers> g_workers;

// The clocks of a thread have its number in theirs: that is how the kernel numbers these clocks.
// The C library reads it from the memory of the thread, which is gone if the program has joined the
// thread with a function of its own. 0: not known.
pid_t tid_of(pthread_t thread) {
    char memory[1024];
    clockid_t clock;
    const bool is_there =
        ProgramMemory().read(std::bit_cast<const void*>(thread), memory, sizeof memory);
    return is_there && pthread_getcpuclockid(thread, &clock) == 0 ? ~(clock >> 3) : 0;
}
clockid_t processor_clock_of(pid_t tid) {
    constexpr clockid_t kOfThread = 4;
    constexpr clockid_t kExact = 2;
    return static_cast<clockid_t>(~static_cast<unsigned>(tid) << 3U) | kOfThread | kExact;
}

const char* name_of_state(std::uint32_t state) {
    constexpr const char* kNames[] = {"NONE", "CREATED", "START", "STARTING", "RUN", "STOPPED"};
    static_assert(ZXTHREAD_STATE_NONE == 0 && ZXTHREAD_STATE_STOPPED == std::size(kNames) - 1);
    return state < std::size(kNames) ? kNames[state] : "other";
}

// What the system tells of a thread.
struct Task {
    pid_t tid;
    char name[sizeof "0123456789abcdef"];
    std::uint64_t cpu_us;
    std::uint64_t began_ticks;  // since the system has started
};

std::int64_t now_us_of(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return time.tv_sec * std::int64_t{kUsPerSec} + time.tv_nsec / 1000;
}

// In microseconds of steady_us(), which does not count while the system sleeps.
std::int64_t began_us(const Task& task) {
    const auto per_s = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    const std::int64_t asleep_us = now_us_of(CLOCK_BOOTTIME) - now_us_of(CLOCK_MONOTONIC);
    return static_cast<std::int64_t>(task.began_ticks * kUsPerSec / per_s) - asleep_us;
}

// "TID (NAME) …": the beginning is the 22nd word. The name may have blanks and brackets.
bool parse(const char* stat, Task& task) {
    const char* const open = std::strchr(stat, '(');
    const char* const close = std::strrchr(stat, ')');
    if (open == nullptr || close == nullptr || close < open) {
        return false;
    }
    const auto size = std::min(static_cast<std::size_t>(close - open - 1), sizeof task.name - 1);
    std::memset(task.name, 0, sizeof task.name);
    std::memcpy(task.name, open + 1, size);

    constexpr int kBlanksBefore = 20;  // from the bracket to the 22nd word
    const char* at = close;
    for (int i = 0; at != nullptr && i < kBlanksBefore; ++i) {
        at = std::strchr(at + 1, ' ');
    }
    return at != nullptr &&
           std::from_chars(at + 1, at + std::strlen(at), task.began_ticks).ec == std::errc();
}

// False: the thread has ended.
bool read_task(int directory, const char* number, Task& task) {
    task.tid = 0;
    std::from_chars(number, number + std::strlen(number), task.tid);
    char path[64];
    std::snprintf(path, sizeof path, "%d/stat", task.tid);
    const int fd = openat(directory, path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char stat[1024];
    const ssize_t size = read(fd, stat, sizeof stat - 1);
    close(fd);
    stat[size > 0 ? size : 0] = '\0';
    timespec used{};
    if (clock_gettime(processor_clock_of(task.tid), &used) != 0) {
        return false;
    }
    task.cpu_us = static_cast<std::uint64_t>(used.tv_sec) * kUsPerSec +
                  static_cast<std::uint64_t>(used.tv_nsec / 1000);
    return parse(stat, task);
}

// The processor time of threads as of earlier questions. Guarded by g_asking.
class Samples {
public:
    // Where there is no sample and no room, the place of the thread that was seen least recently.
    Growth& of(const Task& task, std::uint64_t round) {
        constexpr std::size_t kSteps = 32;
        const auto first = static_cast<std::size_t>(task.tid);
        Sample* oldest = &samples_[first % kSize];
        for (std::size_t i = 0; i < kSteps; ++i) {
            Sample& sample = samples_[(first + i) % kSize];
            if (sample.tid == task.tid && sample.began_ticks == task.began_ticks) {
                sample.round = round;
                return sample.growth;
            }
            oldest = sample.round < oldest->round ? &sample : oldest;
        }
        *oldest = {task.tid, task.began_ticks, round, Growth(began_us(task))};
        return oldest->growth;
    }

private:
    static constexpr std::size_t kSize = 4096;
    struct Sample {
        pid_t tid;
        std::uint64_t began_ticks;
        std::uint64_t round;
        Growth growth;
    };
    Sample samples_[kSize]{};
};
constinit Samples g_samples ZX_GUARDED_BY(g_asking);
std::uint64_t g_round ZX_GUARDED_BY(g_asking) = 0;

void add_worker(cJSON* object, const Worker& worker) {
    const std::uint32_t state = worker.state.load(kRelaxed);
    add_text(object, "created_as", worker.name.copy().text);
    add_number(object, "state", state);
    cJSON_AddStringToObject(object, "state_name", name_of_state(state));
}

// Thousands of threads and workers make this slow for the one who asks, and nobody else. The number
// of a worker that has ended may be another thread's, which began after the worker was seen.
Worker* worker_of(const Task& task) {
    constexpr std::int64_t kTickUs = 20000;  // at least: times of the system are as coarse
    const std::int64_t latest_us = began_us(task) - kTickUs;
    Worker* found = nullptr;
    g_workers.for_each([&](Worker& worker) {
        if (worker.tid.load(kRelaxed) == task.tid && worker.since_us.load(kRelaxed) > latest_us) {
            found = &worker;
        }
    });
    return found;
}

cJSON* as_object(const Task& task) ZX_REQUIRES(g_asking) {
    Growth& growth = g_samples.of(task, g_round);
    growth.see(task.cpu_us, steady_us());
    cJSON* const object = cJSON_CreateObject();
    add_number(object, "tid", task.tid);
    add_text(object, "name", task.name);
    if (Worker* const worker = worker_of(task); worker != nullptr) {
        worker->round = g_round;
        add_worker(object, *worker);
    }
    if (const LockEntry* const lock = lock_awaited_by(task.tid); lock != nullptr) {
        add_text(object, "waits_for", lock->name.copy().text);
    }
    add_number(object, "cpu_us", task.cpu_us);
    add_number(object, "cpu_percent", growth.per_s() * 100 / kUsPerSec);
    add_number(object, "share_over_us", growth.over_us());
    return object;
}

void add_tasks(cJSON* threads, DIR* directory) ZX_REQUIRES(g_asking) {
    while (const dirent* const entry = readdir(directory)) {
        if (Task task{};
            entry->d_name[0] != '.' && read_task(dirfd(directory), entry->d_name, task)) {
            cJSON_AddItemToArray(threads, as_object(task));
        }
    }
}

// Workers whose threads have ended by themselves: nobody has destroyed their records.
void add_ended(cJSON* threads) {
    g_workers.for_each([&](const Worker& worker) {
        g_asking.is_held();
        if (worker.round != g_round) {
            cJSON* const object = cJSON_CreateObject();
            add_number(object, "tid", worker.tid.load(kRelaxed));
            add_worker(object, worker);
            cJSON_AddBoolToObject(object, "has_ended", 1);
            cJSON_AddItemToArray(threads, object);
        }
    });
}

}  // namespace

void thread_state(const zxthread_ctt& thread) {
    Worker* const worker = g_workers.entry_of(&thread, [&thread](Worker& fresh) {
        fresh.tid.store(tid_of(thread.handle), kRelaxed);
        fresh.since_us.store(steady_us(), kRelaxed);
        fresh.name.set(thread.name, sizeof thread.name);
        fresh.state.store(thread.state, kRelaxed);
    });
    if (worker != nullptr && worker->state.load(kRelaxed) != thread.state) {
        worker->state.store(thread.state, kRelaxed);
    }
}

void thread_gone(const zxthread_ctt& thread) {
    g_workers.forget(&thread);
}

void begin_threads_anew() {
    g_workers.forget_other_threads();
    g_workers.forget_all();
    g_asking.forget_other_threads();
}

Answer answer_threads(const Question&) {
    DIR* const directory = opendir("/proc/self/task");
    if (directory == nullptr) {
        return {error_object(std::strerror(errno)), nullptr};
    }
    cJSON* const answer = cJSON_CreateObject();
    cJSON* const threads = cJSON_AddArrayToObject(answer, "threads");
    {
        const MutexGuard guard(g_asking);
        ++g_round;
        add_tasks(threads, directory);
        add_ended(threads);
    }
    closedir(directory);
    add_number(answer, "left_out", g_workers.left_out());
    return {answer, nullptr};
}

}  // namespace zx::diag
