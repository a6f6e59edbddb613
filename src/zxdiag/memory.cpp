#include "zxdiag/memory.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <string_view>

#include "internal/log.hpp"
#include "internal/mutex.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/places.hpp"
#include "zxmem/allocator.hpp"

namespace zx::diag {
namespace {

constexpr char kTag[] = "DIAG";
constexpr std::int64_t kUsPerSecond = 1000000;

std::atomic<bool> g_is_tracking{false};
constinit bool g_child_goes_on = false;

std::int64_t now_us() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kUsPerSecond + now.tv_nsec / 1000;
}

// What each place had at some time.
struct Numbers {
    std::uint64_t id;
    std::uint64_t buffers;
    std::uint64_t bytes;
};
struct Snapshot {
    std::int64_t at_us;  // 0: empty
    std::size_t end;
    Numbers places[kMostPlaces];
};

// A snapshot with a name that somebody gave it.
constexpr std::size_t kMarkNameSize = 32;
struct Mark {
    char name[kMarkNameSize];
    Snapshot snapshot;
};
constexpr std::size_t kMostMarks = 8;

// Those who ask, who may be several, and the thread that serves. Nobody else waits for this mutex,
// and nothing is called under it.
constinit Mutex g_mutex;
Mark g_marks[kMostMarks] ZX_GUARDED_BY(g_mutex);
// The growth is that since the earlier sample, and since the later one as long as it is alone.
Snapshot g_samples[2] ZX_GUARDED_BY(g_mutex);
constinit std::size_t g_later ZX_GUARDED_BY(g_mutex) = 0;

Numbers numbers_of(const Place& place) {
    return {place.id.load(std::memory_order_acquire), place.buffers.load(std::memory_order_acquire),
            place.bytes.load(std::memory_order_acquire)};
}

void take(Snapshot& out, std::int64_t now) {
    out.at_us = now;
    out.end = g_place_end.load(std::memory_order_acquire);
    std::transform(g_places, g_places + out.end, out.places, numbers_of);
}

// NULL: there is no such mark.
Mark* find_mark(std::string_view name) ZX_REQUIRES(g_mutex) {
    auto* const found = std::find_if(std::begin(g_marks), std::end(g_marks), [&](const Mark& mark) {
        return mark.snapshot.at_us != 0 && name == mark.name;
    });
    return found != std::end(g_marks) ? found : nullptr;
}

// In place of the mark of this name, or of the oldest one.
void set_mark(const char* name, std::int64_t now) ZX_REQUIRES(g_mutex) {
    Mark* mark = find_mark(name);
    if (mark == nullptr) {
        mark = std::min_element(std::begin(g_marks), std::end(g_marks),
                                [](const Mark& one, const Mark& other) {
                                    return one.snapshot.at_us < other.snapshot.at_us;
                                });
    }
    std::snprintf(mark->name, sizeof mark->name, "%s", name);
    take(mark->snapshot, now);
}

void take_sample(std::int64_t now) ZX_REQUIRES(g_mutex) {
    constexpr std::int64_t kStepUs = 10 * kUsPerSecond;
    const std::int64_t later_us = g_samples[g_later].at_us;
    if (later_us == 0 || now - later_us >= kStepUs) {
        g_later = 1 - g_later;
        take(g_samples[g_later], now);
    }
}

// NULL: there is none that is a second old.
const Snapshot* sample_for_growth(std::int64_t now) ZX_REQUIRES(g_mutex) {
    const Snapshot& earlier = g_samples[1 - g_later];
    const Snapshot& base = earlier.at_us != 0 ? earlier : g_samples[g_later];
    return base.at_us != 0 && now - base.at_us >= kUsPerSecond ? &base : nullptr;
}

// A line of the answer.
struct Row {
    std::uint64_t buffers;
    std::uint64_t bytes;
    std::uint64_t made;
    std::uint64_t freed;
    std::int64_t more_buffers;  // than the mark has
    std::int64_t more_bytes;
    std::int64_t grown;      // bytes since the sample
    std::uint32_t oldest_s;  // 0: no buffer
    std::uint32_t line;
    decltype(Place::name)::Copy name;
    decltype(Place::file)::Copy file;
};

struct Sum {
    std::uint64_t buffers;
    std::uint64_t bytes;
    std::int64_t more_buffers;
    std::int64_t more_bytes;
};

// The rows of all places. What had no room in the table is only in `all` and `left_out`.
class Table {
public:
    Table()
        : end_(g_place_end.load(std::memory_order_acquire)),
          rows_(static_cast<Row*>(std::calloc(end_, sizeof(Row)))) {}
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table() { std::free(rows_); }
    [[nodiscard]] bool is_there() const { return rows_ != nullptr; }

    void fill(const Snapshot* mark, const Snapshot* sample) {
        for (std::size_t at = kOtherPlaces; at < end_; ++at) {
            Row& row = rows_[count_];
            row = {};
            const Numbers now = numbers_of(g_places[at]);
            row.buffers = now.buffers;
            row.bytes = now.bytes;
            const Numbers marked = then(mark, at, now.id);
            row.more_buffers = static_cast<std::int64_t>(now.buffers - marked.buffers);
            row.more_bytes = static_cast<std::int64_t>(now.bytes - marked.bytes);
            row.grown = static_cast<std::int64_t>(now.bytes - then(sample, at, now.id).bytes);
            if (at == kOtherPlaces) {
                left_out = {row.buffers, row.bytes, row.more_buffers, row.more_bytes};
            }
            all.buffers += row.buffers;
            all.bytes += row.bytes;
            if (at >= kFirstPlace && is_copied(g_places[at], now.id, row)) {
                ++count_;
            }
        }
        if (mark != nullptr) {
            for (std::size_t at = kOtherPlaces; at < mark->end; ++at) {
                all.more_buffers -= static_cast<std::int64_t>(mark->places[at].buffers);
                all.more_bytes -= static_cast<std::int64_t>(mark->places[at].bytes);
            }
            all.more_buffers += static_cast<std::int64_t>(all.buffers);
            all.more_bytes += static_cast<std::int64_t>(all.bytes);
        }
    }

    void join_names() {
        const auto name_of = [](const Row& row) { return std::string_view(row.name.text); };
        std::sort(rows_, rows_ + count_,
                  [&](const Row& one, const Row& other) { return name_of(one) < name_of(other); });
        std::size_t joined = 0;
        for (std::size_t i = 0; i < count_; ++i) {
            if (joined != 0 && name_of(rows_[joined - 1]) == name_of(rows_[i])) {
                join(rows_[joined - 1], rows_[i]);
            } else {
                rows_[joined++] = rows_[i];
            }
        }
        count_ = joined;
    }

    // The greatest ones come first.
    void sort(bool by_difference) {
        std::sort(rows_, rows_ + count_, [&](const Row& one, const Row& other) {
            return by_difference ? one.more_bytes > other.more_bytes : one.bytes > other.bytes;
        });
    }

    [[nodiscard]] const Row* begin() const { return rows_; }
    [[nodiscard]] const Row* end() const { return rows_ + count_; }

    Sum all{};
    Sum left_out{};

private:
    static Numbers then(const Snapshot* snapshot, std::size_t at, std::uint64_t id) {
        const bool is_in =
            snapshot != nullptr && at < snapshot->end && snapshot->places[at].id == id;
        return is_in ? snapshot->places[at] : Numbers{};
    }

    // False when the place serves something else by now: what was read with acquire order then
    // makes the change of the id visible.
    static bool is_copied(const Place& place, std::uint64_t id, Row& row) {
        row.made = place.made.load(std::memory_order_acquire);
        row.freed = row.made - std::min(row.made, row.buffers);
        row.line = place.line.load(std::memory_order_acquire);
        row.oldest_s = row.buffers != 0 ? place.oldest_s.load(std::memory_order_acquire) : 0;
        row.name = place.name.copy();
        row.file = place.file.copy();
        return id != 0 && place.id.load(std::memory_order_relaxed) == id;
    }

    static void join(Row& to, const Row& row) {
        to.buffers += row.buffers;
        to.bytes += row.bytes;
        to.made += row.made;
        to.freed += row.freed;
        to.more_buffers += row.more_buffers;
        to.more_bytes += row.more_bytes;
        to.grown += row.grown;
        to.oldest_s = to.oldest_s == 0    ? row.oldest_s
                      : row.oldest_s == 0 ? to.oldest_s
                                          : std::min(to.oldest_s, row.oldest_s);
    }

    std::size_t end_;  // of the places; others may come meanwhile
    Row* rows_;
    std::size_t count_ = 0;
};

std::int64_t age_of(const Row& row, std::int64_t now) {
    return row.oldest_s != 0 ? now / kUsPerSecond - row.oldest_s : 0;
}

// Who sees that counting has begun again also sees that its first round is not complete.
bool is_counting() {
    return g_mode.load(std::memory_order_acquire) != 0;
}

bool is_complete() {
    return g_is_round_complete.load(std::memory_order_acquire);
}

constexpr char kComplete[] = "complete";

const char* state() {
    return !g_is_tracking.load(std::memory_order_relaxed) ? "not tracking"
           : !is_counting()                               ? "not counting"
           : !is_complete()                               ? "busy"
                                                          : kComplete;
}

struct Wish {
    const char* mark;
    const char* since;
    bool is_by_name;
};

// NULL: it can be answered.
const char* fault_of(const Wish& wish, const char* by) {
    if (by != nullptr && !wish.is_by_name && std::string_view(by) != "place") {
        return "by: name or place";
    }
    if (wish.mark != nullptr && (*wish.mark == '\0' || std::strlen(wish.mark) >= kMarkNameSize)) {
        return "mark: a name of 1 to 31 characters";
    }
    if ((wish.mark != nullptr || wish.since != nullptr) && std::string_view(state()) != kComplete) {
        return "the numbers are not complete: ask without mark and since for the state";
    }
    return nullptr;
}

// The times that the answer speaks of. 0: there is none.
struct Times {
    std::int64_t now_us;
    std::int64_t mark_us;
    std::int64_t sample_us;
};

// False when there is no mark of this name.
bool fill(Table& table, const Wish& wish, Times& times) {
    const MutexGuard guard(g_mutex);
    if (is_complete()) {
        take_sample(times.now_us);
    }
    const Snapshot* since = nullptr;
    if (wish.since != nullptr) {
        const Mark* const mark = find_mark(wish.since);
        if (mark == nullptr) {
            return false;
        }
        since = &mark->snapshot;
        times.mark_us = since->at_us;
    }
    const Snapshot* const sample = sample_for_growth(times.now_us);
    times.sample_us = sample != nullptr ? sample->at_us : 0;
    table.fill(since, sample);
    if (wish.mark != nullptr) {
        set_mark(wish.mark, times.now_us);
    }
    return true;
}

cJSON* object_of(const Row& row, const Wish& wish, const Times& times) {
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", row.name.text);
    if (!wish.is_by_name) {
        add_text(object, "file", row.file.text);
        add_number(object, "line", row.line);
    }
    add_number(object, "buffers", row.buffers);
    add_number(object, "bytes", row.bytes);
    add_number(object, "oldest_s", age_of(row, times.now_us));
    add_number(object, "made", row.made);
    add_number(object, "freed", row.freed);
    if (times.sample_us != 0) {
        add_number(object, "bytes_per_s",
                   row.grown * kUsPerSecond / (times.now_us - times.sample_us));
    }
    if (wish.since != nullptr) {
        add_number(object, "more_buffers", row.more_buffers);
        add_number(object, "more_bytes", row.more_bytes);
    }
    return object;
}

cJSON* object_of(const Table& table, const Wish& wish, const Times& times) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "state", state());
    add_number(object, "buffers", table.all.buffers);
    add_number(object, "bytes", table.all.bytes);
    if (times.sample_us != 0) {
        add_number(object, "growth_over_s", (times.now_us - times.sample_us) / kUsPerSecond);
    }
    if (wish.since != nullptr) {
        add_number(object, "since_s", (times.now_us - times.mark_us) / kUsPerSecond);
        add_number(object, "more_buffers", table.all.more_buffers);
        add_number(object, "more_bytes", table.all.more_bytes);
    }
    cJSON* const places = cJSON_AddArrayToObject(object, "places");
    for (const Row& row : table) {
        cJSON_AddItemToArray(places, object_of(row, wish, times));
    }
    add_number(object, "left_out", table.left_out.buffers);
    add_number(object, "left_out_bytes", table.left_out.bytes);
    return object;
}

void log_row(const Row& row, std::int64_t now) {
    ZX_LOG(warning, "still held: '%s' of %s %u: %lu buffers, %lu bytes, the oldest for %ld s",
           row.name.text, row.file.text, row.line, row.buffers, row.bytes, age_of(row, now));
}

// Says what is still held. Runs as late as possible: after the destructors of the program's own
// objects, which may give buffers back.
[[gnu::destructor]] void report_leaks() {
    const char* const wish = secure_getenv("ZX_DIAG_LEAKS");
    if (wish == nullptr || std::strcmp(wish, "1") != 0 || g_child_goes_on) {
        return;
    }
    if (mem::zxmem_enable_dbg != 1) {
        ZX_LOG(warning, "what is still held is not known: the program does not track its buffers");
        return;
    }
    if (g_is_tracking.load() && !mem::can_be_locked()) {
        ZX_LOG(warning, "what is still held is not known: the list of the buffers is in use");
        return;
    }
    mem::show_buffers((g_mode.fetch_or(kCounting) & kCounting) == 0 || !g_is_tracking.load());
    Table table;
    if (!table.is_there()) {
        return;
    }
    table.fill(nullptr, nullptr);
    table.sort(false);
    const std::int64_t now = now_us();
    for (const Row& row : table) {
        if (row.buffers != 0) {
            log_row(row, now);
        }
    }
    if (table.left_out.buffers != 0) {
        ZX_LOG(warning, "still held: at other places: %lu buffers, %lu bytes",
               table.left_out.buffers, table.left_out.bytes);
    }
    if (table.all.buffers != 0) {
        ZX_LOG(warning, "still held at the end: %lu buffers, %lu bytes", table.all.buffers,
               table.all.bytes);
    }
}

}  // namespace

// Either this function sees that the allocator has its lock, or tracking_begins() sees that the
// diagnosis is on.
void count_memory(bool was_off) {
    if (g_is_tracking.load()) {
        mem::show_buffers(was_off);
    }
}

void tracking_begins() {
    g_is_tracking.store(true);
    if (g_mode.load() != 0) {
        mem::show_buffers(true);
    }
}

void child_goes_on() {
    g_child_goes_on = true;
}

void tracking_ends() {
    g_is_tracking.store(false);
}

void sample_memory() {
    if (is_counting() && is_complete()) {
        const MutexGuard guard(g_mutex);
        take_sample(now_us());
    }
}

void forget_marks() {
    g_mutex.forget_other_threads();
    for (Mark& mark : g_marks) {
        mark.snapshot.at_us = 0;
    }
    for (Snapshot& sample : g_samples) {
        sample.at_us = 0;
    }
}

Answer answer_memory(const Question& question) {
    const char* const by = question.value("by");
    const Wish wish{question.value("mark"), question.value("since"),
                    by != nullptr && std::string_view(by) == "name"};
    if (const char* const fault = fault_of(wish, by); fault != nullptr) {
        return {error_object(fault), nullptr};
    }
    Table table;
    if (!table.is_there()) {
        return {};
    }
    Times times{now_us(), 0, 0};
    if (!fill(table, wish, times)) {
        return {error_object("there is no such mark"), nullptr};
    }
    if (wish.is_by_name) {
        table.join_names();
    }
    table.sort(wish.since != nullptr);
    return {object_of(table, wish, times), nullptr};
}

}  // namespace zx::diag
