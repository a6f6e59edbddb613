#include "zxdiag/trace.hpp"

#include <sys/sdt.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <new>
#include <utility>

#include "shared/write_once.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxdiag/thread_record.hpp"
#include "zxdiag/waits.hpp"

namespace zx::diag {
namespace {

constexpr std::size_t kMostEvents = 65536;
constexpr std::int64_t kLongestTrace = 60;  // seconds
constexpr std::size_t kWholeText = 4096;
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

// Of the thread record with the same number. Only that thread writes it.
struct OutsideWait {
    std::atomic<std::uint64_t> since_ns{0};  // 0: it waits for nothing
    std::atomic<pid_t> tid{0};               // a thread that was cancelled has left its own
    std::atomic<std::uint32_t> span{0};
    std::atomic<std::int64_t> amount{0};
    SharedText<40> name;
};

// The first trace makes the table. It stays, because a thread may still be recording when a trace
// is over.
constinit std::atomic<Event*> g_events{};
constinit OutsideWait g_outside_waits[kMostThreads];
constinit std::atomic<std::uint32_t> g_trace{0};  // counts the traces
constinit std::atomic<std::uint64_t> g_taken{0};  // events of this trace, also those without room
constinit std::atomic<std::uint64_t> g_least_ns{0};
constinit std::atomic<std::uint64_t> g_begin_ns{0};  // of this trace
constinit std::atomic<std::uint64_t> g_end_ns{0};    // what ends later is still open at the end
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

struct Part {
    std::uint32_t span;
    std::uint64_t begin_ns;
    std::uint64_t length_ns;
    std::int64_t amount;  // below 0: there is none
    pid_t tid;
    SharedText<40>::Copy name;
    bool is_open = false;
};

Part part_of(const Event& event) {
    return {event.span.load(std::memory_order_relaxed),
            event.begin_ns.load(std::memory_order_relaxed),
            event.length_ns.load(std::memory_order_relaxed),
            event.amount.load(std::memory_order_relaxed),
            event.tid.load(std::memory_order_relaxed),
            event.name.copy()};
}

cJSON* object_of(const Part& part) {
    const SpanText text = text_of(part.span);
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", part.name.text);
    cJSON_AddStringToObject(object, "cat", text.category);
    add_text(object, "ph", "X");
    add_number(object, "ts", micros(part.begin_ns));
    add_number(object, "dur", micros(part.length_ns));
    add_number(object, "pid", getpid());
    add_number(object, "tid", part.tid);
    cJSON* const arguments = cJSON_AddObjectToObject(object, "args");
    if (text.amount != nullptr && part.amount >= 0) {
        add_number(arguments, text.amount, part.amount);
    }
    if (part.is_open) {
        cJSON_AddTrueToObject(arguments, "open");
    }
    return object;
}

// The viewers show the names of threads that are told in this way.
cJSON* name_of_thread(const ThreadRecord& record) {
    const pid_t tid = record.tid.load(std::memory_order_relaxed);
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", "thread_name");
    add_text(object, "ph", "M");
    add_number(object, "pid", getpid());
    add_number(object, "tid", tid);
    const ThreadName name = &record == &g_ended_thread ? ThreadName{"(ended)"} : thread_name(tid);
    add_text(cJSON_AddObjectToObject(object, "args"), "name", name.text);
    return object;
}

// Adds what had begun by the end of the trace and is not over.
void add_open(cJSON* events, Part part) {
    const std::uint64_t end_ns = g_end_ns.load(std::memory_order_relaxed);
    part.begin_ns = std::max(part.begin_ns, g_begin_ns.load(std::memory_order_relaxed));
    part.length_ns = end_ns - std::min(part.begin_ns, end_ns);
    part.is_open = true;
    if (part.length_ns >= std::max<std::uint64_t>(g_least_ns.load(std::memory_order_relaxed), 1)) {
        cJSON_AddItemToArray(events, object_of(part));
    }
}

template <std::size_t Size>
SharedText<40>::Copy short_name(const SharedText<Size>& name) {
    SharedText<40> out;
    out.set(name.copy().text);
    return out.copy();
}

void add_open_lock_wait(cJSON* events, const ThreadRecord& thread) {
    if (WaitCopy wait; copy_wait(thread, wait)) {
        add_open(events, {static_cast<std::uint32_t>(Span::lock_wait),
                          static_cast<std::uint64_t>(wait.since_us) * 1000, 0, -1,
                          thread.tid.load(std::memory_order_relaxed), short_name(wait.lock->name)});
    }
}

void add_open_outside_wait(cJSON* events, const ThreadRecord& thread) {
    const OutsideWait& wait = g_outside_waits[&thread - g_thread_records];
    const std::uint64_t since_ns = wait.since_ns.load(std::memory_order_acquire);
    const Part part{wait.span.load(std::memory_order_acquire),
                    since_ns,
                    0,
                    wait.amount.load(std::memory_order_acquire),
                    wait.tid.load(std::memory_order_acquire),
                    wait.name.copy()};
    if (since_ns != 0 && part.tid == thread.tid.load(std::memory_order_relaxed) &&
        wait.since_ns.load(std::memory_order_acquire) == since_ns) {
        add_open(events, part);
    }
}

// A hold that began before the trace has an old time, or none. Locks that threads held when they
// ended are in a row of their own.
void add_open_hold(cJSON* events, const LockEntry& entry) {
    const ThreadRecord* const holder = entry.holder.load(std::memory_order_acquire);
    if (holder == nullptr) {
        return;
    }
    if (holder == &g_ended_thread) {
        cJSON_AddItemToArray(events, name_of_thread(*holder));
    }
    add_open(events, {static_cast<std::uint32_t>(Span::lock_hold),
                      entry.traced_ns.load(std::memory_order_relaxed), 0, -1,
                      holder->tid.load(std::memory_order_relaxed), short_name(entry.name)});
}

// The spans that are still open, in an array.
cJSON* open_spans() {
    cJSON* const events = cJSON_CreateArray();
    for_each_thread([&](const ThreadRecord& thread) {
        add_open_lock_wait(events, thread);
        add_open_outside_wait(events, thread);
    });
    g_locks.for_each([&](const LockEntry& entry) { add_open_hold(events, entry); });
    return events;
}

// Adds the names of the threads and all spans that are over to the array.
cJSON* all_events(cJSON* events) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToObject(object, "traceEvents", events);
    for_each_thread(
        [&](const ThreadRecord& record) { cJSON_AddItemToArray(events, name_of_thread(record)); });
    const std::uint64_t taken = g_taken.load(std::memory_order_relaxed);
    const std::uint32_t trace = g_trace.load(std::memory_order_relaxed);
    const std::size_t count = taken < kMostEvents ? static_cast<std::size_t>(taken) : kMostEvents;
    for (std::size_t i = 0; i < count; ++i) {
        const Event& event = g_events.load(std::memory_order_relaxed)[i];
        if (event.trace.load(std::memory_order_acquire) == trace) {
            cJSON_AddItemToArray(events, object_of(part_of(event)));
        }
    }
    cJSON_AddStringToObject(object, "displayTimeUnit", "ns");
    cJSON_AddNumberToObject(object, "dropped", static_cast<double>(taken - count));
    return object;
}

// Notes what the calling thread waits for, for a trace that ends meanwhile. False: there is no
// room.
bool begin_outside_wait(Span span, const char* name, std::int64_t amount) {
    const ErrnoKept errno_kept;
    const ThreadRecord* const self = own_record();
    if (self == nullptr) {
        return false;
    }
    OutsideWait& wait = g_outside_waits[self - g_thread_records];
    wait.since_ns.store(0, std::memory_order_relaxed);
    wait.tid.store(self->tid.load(std::memory_order_relaxed), std::memory_order_release);
    wait.span.store(static_cast<std::uint32_t>(span), std::memory_order_release);
    wait.amount.store(amount, std::memory_order_release);
    wait.name.set(name);
    wait.since_ns.store(steady_ns(), std::memory_order_release);
    return true;
}

void end_outside_wait() {
    if (t_record != nullptr) {
        g_outside_waits[t_record - g_thread_records].since_ns.store(0, std::memory_order_relaxed);
    }
}

class TraceSeries final : public Series {
public:
    TraceSeries(std::uint64_t seconds, std::uint64_t least_us)
        : end_ns_(steady_ns() + seconds * 1'000'000'000) {
        g_taken.store(0, std::memory_order_relaxed);
        g_begin_ns.store(steady_ns(), std::memory_order_relaxed);
        g_end_ns.store(UINT64_MAX, std::memory_order_relaxed);
        g_least_ns.store(least_us * 1000, std::memory_order_relaxed);
        g_trace.fetch_add(1, std::memory_order_release);
        g_mode.fetch_or(kTracing, std::memory_order_release);
    }
    TraceSeries(const TraceSeries&) = delete;
    TraceSeries& operator=(const TraceSeries&) = delete;
    ~TraceSeries() override {
        g_mode.fetch_and(~kTracing, std::memory_order_relaxed);
        cJSON_Delete(open_);
        g_is_taken.store(false, std::memory_order_release);
    }

    // Threads that were recording something when the time was up get a moment to complete it.
    cJSON* next() override {
        const std::uint64_t now = steady_ns();
        if (now < end_ns_ || is_over_) {
            return nullptr;
        }
        if (open_ == nullptr) {
            g_mode.fetch_and(~kTracing, std::memory_order_relaxed);
            g_end_ns.store(now, std::memory_order_relaxed);
            open_ = open_spans();
        }
        if (now < end_ns_ + kSettleNs) {
            return nullptr;
        }
        is_over_ = true;
        return all_events(std::exchange(open_, nullptr));
    }
    [[nodiscard]] bool is_over() const override { return is_over_; }

private:
    std::uint64_t end_ns_;
    cJSON* open_ = nullptr;
    bool is_over_ = false;
};

}  // namespace

void trace(Span span, std::uint64_t begin_ns, const char* name, std::size_t limit,
           std::int64_t amount) {
    const ErrnoKept errno_kept;
    const std::uint32_t trace = g_trace.load(std::memory_order_acquire);  // before its limits
    const std::uint64_t now = steady_ns();
    const std::uint64_t length = now - begin_ns;
    // What began under an earlier trace has an unknown length.
    if (now > g_end_ns.load(std::memory_order_relaxed) ||
        length < g_least_ns.load(std::memory_order_relaxed) ||
        begin_ns < g_begin_ns.load(std::memory_order_relaxed)) {
        return;
    }
    const std::uint64_t place = g_taken.fetch_add(1, std::memory_order_relaxed);
    if (place >= kMostEvents) {
        return;
    }
    const ThreadRecord* const self = own_record();
    Event& event = g_events.load(std::memory_order_acquire)[place];
    event.span.store(static_cast<std::uint32_t>(span), std::memory_order_relaxed);
    event.begin_ns.store(begin_ns, std::memory_order_relaxed);
    event.length_ns.store(length, std::memory_order_relaxed);
    event.amount.store(amount, std::memory_order_relaxed);
    event.tid.store(self != nullptr ? self->tid.load(std::memory_order_relaxed) : gettid(),
                    std::memory_order_relaxed);
    event.name.set(name, limit);
    event.trace.store(trace, std::memory_order_release);
}

TracedWait::TracedWait(Span span, const char* name, std::int64_t amount)
    : begin_ns_(is_tracing() ? steady_ns() : 0),
      name_(name),
      amount_(amount),
      span_(span),
      is_noted_(is_on() && begin_outside_wait(span, name, amount)) {
    DTRACE_PROBE3(zxcommon, wait_begin, static_cast<int>(span), name, amount);
}

TracedWait::~TracedWait() {
    DTRACE_PROBE3(zxcommon, wait_end, static_cast<int>(span_), name_, amount_);
    if (is_noted_) {
        end_outside_wait();
    }
    if (begin_ns_ != 0) {
        trace(span_, begin_ns_, name_, kWholeText, amount_);
    }
}

// The wait of the one thread of the child, if it made one, belongs to the parent.
void forget_trace() {
    for (OutsideWait& wait : g_outside_waits) {
        wait.since_ns.store(0, std::memory_order_relaxed);
    }
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
    if (g_events.load(std::memory_order_relaxed) == nullptr) {
        g_events.store(new (std::nothrow) Event[kMostEvents], std::memory_order_release);
    }
    auto* const series = new (std::nothrow)
        TraceSeries(static_cast<std::uint64_t>(seconds), static_cast<std::uint64_t>(least_us));
    if (g_events.load(std::memory_order_relaxed) == nullptr || series == nullptr) {
        delete series;
        g_is_taken.store(false, std::memory_order_release);
        return {error_object("there is no memory"), nullptr};
    }
    return {nullptr, series};
}

}  // namespace zx::diag
