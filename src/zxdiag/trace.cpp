#include "zxdiag/trace.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

#include "shared/write_once.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxdiag/thread_record.hpp"

namespace zx::diag {
namespace {

constexpr std::size_t kMostEvents = 65536;
constexpr std::int64_t kLongestTrace = 60;  // seconds
constexpr std::uint64_t kSettleNs = 200'000'000;

struct Event {
    std::atomic<std::uint32_t> trace{0};  // the trace that it belongs to, once it is complete
    std::atomic<std::uint32_t> span{0};
    std::atomic<std::uint64_t> begin_ns{0};
    std::atomic<std::uint64_t> length_ns{0};
    std::atomic<std::int64_t> amount{0};
    std::atomic<pid_t> tid{0};
    SharedText<40> name;
};

constinit Event g_events[kMostEvents];
constinit std::atomic<std::uint32_t> g_trace{0};  // counts the traces
constinit std::atomic<std::uint64_t> g_taken{0};  // events of this trace, also those without room
constinit std::atomic<std::uint64_t> g_least_ns{0};
constinit std::atomic<std::uint64_t> g_begin_ns{0};  // of this trace
constinit std::atomic<bool> g_is_taken{false};       // somebody traces

struct SpanText {
    const char* category;
    const char* amount;  // what the amount means
};

SpanText text_of(std::uint32_t span) {
    switch (static_cast<Span>(span)) {
        case Span::lock_wait:
            return {"lock wait", nullptr};
        case Span::lock_hold:
            return {"lock hold", nullptr};
        case Span::fifo_in:
            return {"fifo in", "bytes"};
        case Span::fifo_out:
            return {"fifo out", "bytes"};
        case Span::socket_wait:
            return {"socket wait", "descriptor"};
        case Span::command:
            return {"command", nullptr};
    }
    return {"", nullptr};
}

double micros(std::uint64_t ns) {
    return static_cast<double>(ns) / 1000;
}

cJSON* object_of(const Event& event) {
    const SpanText text = text_of(event.span.load(std::memory_order_relaxed));
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", event.name.copy().text);
    cJSON_AddStringToObject(object, "cat", text.category);
    cJSON_AddStringToObject(object, "ph", "X");
    cJSON_AddNumberToObject(object, "ts", micros(event.begin_ns.load(std::memory_order_relaxed)));
    cJSON_AddNumberToObject(object, "dur", micros(event.length_ns.load(std::memory_order_relaxed)));
    cJSON_AddNumberToObject(object, "pid", getpid());
    cJSON_AddNumberToObject(object, "tid", event.tid.load(std::memory_order_relaxed));
    if (text.amount != nullptr) {
        cJSON* const arguments = cJSON_AddObjectToObject(object, "args");
        cJSON_AddNumberToObject(arguments, text.amount,
                                static_cast<double>(event.amount.load(std::memory_order_relaxed)));
    }
    return object;
}

// The viewers show the names of threads that are told in this way.
cJSON* name_of_thread(pid_t tid) {
    char path[64];
    char name[32] = "";
    std::snprintf(path, sizeof path, "/proc/self/task/%d/comm", static_cast<int>(tid));
    if (const int fd = open(path, O_RDONLY | O_CLOEXEC); fd >= 0) {
        const ssize_t size = read(fd, name, sizeof name - 1);
        name[size > 0 ? size - 1 : 0] = '\0';  // without the line end
        close(fd);
    }
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "name", "thread_name");
    cJSON_AddStringToObject(object, "ph", "M");
    cJSON_AddNumberToObject(object, "pid", getpid());
    cJSON_AddNumberToObject(object, "tid", tid);
    add_text(cJSON_AddObjectToObject(object, "args"), "name", name);
    return object;
}

cJSON* all_events() {
    cJSON* const object = cJSON_CreateObject();
    cJSON* const events = cJSON_AddArrayToObject(object, "traceEvents");
    for_each_thread([&](const ThreadRecord& record) {
        cJSON_AddItemToArray(events, name_of_thread(record.tid.load(std::memory_order_relaxed)));
    });
    const std::uint64_t taken = g_taken.load(std::memory_order_relaxed);
    const std::uint32_t trace = g_trace.load(std::memory_order_relaxed);
    const std::size_t count = taken < kMostEvents ? static_cast<std::size_t>(taken) : kMostEvents;
    for (std::size_t i = 0; i < count; ++i) {
        if (g_events[i].trace.load(std::memory_order_acquire) == trace) {
            cJSON_AddItemToArray(events, object_of(g_events[i]));
        }
    }
    cJSON_AddStringToObject(object, "displayTimeUnit", "ns");
    cJSON_AddNumberToObject(object, "dropped", static_cast<double>(taken - count));
    return object;
}

class TraceSeries final : public Series {
public:
    TraceSeries(std::uint64_t seconds, std::uint64_t least_us)
        : end_ns_(steady_ns() + seconds * 1'000'000'000) {
        g_taken.store(0, std::memory_order_relaxed);
        g_begin_ns.store(steady_ns(), std::memory_order_relaxed);
        g_least_ns.store(least_us * 1000, std::memory_order_relaxed);
        g_trace.fetch_add(1, std::memory_order_release);
        g_mode.fetch_or(kTracing, std::memory_order_relaxed);
    }
    TraceSeries(const TraceSeries&) = delete;
    TraceSeries& operator=(const TraceSeries&) = delete;
    ~TraceSeries() override {
        g_mode.fetch_and(~kTracing, std::memory_order_relaxed);
        g_is_taken.store(false, std::memory_order_release);
    }

    // Threads that were recording something when the time was up get a moment to complete it.
    cJSON* next() override {
        const std::uint64_t now = steady_ns();
        if (now < end_ns_) {
            return nullptr;
        }
        g_mode.fetch_and(~kTracing, std::memory_order_relaxed);
        if (now < end_ns_ + kSettleNs) {
            return nullptr;
        }
        is_over_ = true;
        return all_events();
    }
    [[nodiscard]] bool is_over() const override { return is_over_; }

private:
    std::uint64_t end_ns_;
    bool is_over_ = false;
};

}  // namespace

void trace(Span span, std::uint64_t begin_ns, const char* name, std::size_t limit,
           std::int64_t amount) {
    const ErrnoKept errno_kept;
    const std::uint64_t length = steady_ns() - begin_ns;
    // What began under an earlier trace has an unknown length.
    if (length < g_least_ns.load(std::memory_order_relaxed) ||
        begin_ns < g_begin_ns.load(std::memory_order_relaxed)) {
        return;
    }
    const std::uint32_t trace = g_trace.load(std::memory_order_acquire);
    const std::uint64_t place = g_taken.fetch_add(1, std::memory_order_relaxed);
    if (place >= kMostEvents) {
        return;
    }
    const ThreadRecord* const self = own_record();
    Event& event = g_events[place];
    event.span.store(static_cast<std::uint32_t>(span), std::memory_order_relaxed);
    event.begin_ns.store(begin_ns, std::memory_order_relaxed);
    event.length_ns.store(length, std::memory_order_relaxed);
    event.amount.store(amount, std::memory_order_relaxed);
    event.tid.store(self != nullptr ? self->tid.load(std::memory_order_relaxed) : gettid(),
                    std::memory_order_relaxed);
    event.name.set(name, limit);
    event.trace.store(trace, std::memory_order_release);
}

void forget_trace() {
    g_is_taken.store(false, std::memory_order_relaxed);
}

Answer answer_trace(const Question& question) {
    const std::int64_t seconds = question.number("seconds", 1, 1, kLongestTrace);
    const std::int64_t least_us = question.number("least_us", 0, 0, 60'000'000);
    if (seconds == Question::kWrong || least_us == Question::kWrong) {
        return {error_object("seconds must be from 1 to 60, and least_us from 0 to 60000000"),
                nullptr};
    }
    if (g_is_taken.exchange(true, std::memory_order_acquire)) {
        return {error_object("somebody traces this program already"), nullptr};
    }
    auto* const series = new (std::nothrow)
        TraceSeries(static_cast<std::uint64_t>(seconds), static_cast<std::uint64_t>(least_us));
    if (series == nullptr) {
        g_is_taken.store(false, std::memory_order_release);
        return {error_object("there is no memory"), nullptr};
    }
    return {nullptr, series};
}

}  // namespace zx::diag
