// Block FIFOs: what they hold, how fast they run, and what was lost in them.
//
// The threads that use a FIFO count here while they hold its lock, so one at a time changes an
// entry. They come once in each operation, and count what the FIFO's totals say was moved since the
// last time. These totals wrap around at 2^32. So the level of a FIFO in which the writer has left
// the reader far behind only stands here.
#include "zxdiag/fifos.hpp"

#include <algorithm>
#include <cstdint>

#include "internal/mutex.hpp"
#include "internal/poll.hpp"
#include "zxdiag/answers.hpp"
#include "zxdiag/growth.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/known.hpp"
#include "zxdiag/locks.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxdiag/trace.hpp"
#include "zxfifo.h"

namespace zx::diag {
namespace {

constexpr std::size_t kMostFifos = 4096;
constexpr std::size_t kNameRoom = ZXFIFO_NAME_SIZE + 8;  // a multiple of 8, with a NUL
constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr auto kRelease = std::memory_order_release;
constexpr auto kAcquire = std::memory_order_acquire;

constinit Mutex g_asking;

// The size is a power of 2: finding an entry then takes a nanosecond less, of the 20 in which a
// message of 188 bytes is stored.
struct alignas(512) Fifo {
    // What a transfer changes is in one line of the processor's cache.
    std::atomic<const void*> record{};
    std::atomic<std::int64_t> level{};  // stored less taken; below 0: the reader has passed
    std::atomic<std::uint64_t> in{};
    std::atomic<std::uint64_t> out{};
    std::atomic<std::int64_t> highest{};
    std::atomic<std::uint32_t> counted_in{};  // the FIFO's totals when it was last counted
    std::atomic<std::uint32_t> counted_out{};
    std::atomic<std::uint32_t> size{};
    std::atomic<std::uint32_t> epoch{};  // in which that was

    std::atomic<std::uint64_t> overwritten{};
    std::atomic<std::uint64_t> stale{};
    std::atomic<std::uint32_t> resets{};
    std::atomic<std::uint64_t> id{};
    std::atomic<std::int64_t> since_us{};
    SharedText<kNameRoom> name;

    std::uint64_t sampled_id ZX_GUARDED_BY(g_asking){};
    Growth in_growth ZX_GUARDED_BY(g_asking);
    Growth out_growth ZX_GUARDED_BY(g_asking);
};

constinit Known<Fifo, kMostFifos> g_fifos;

// The level that the totals show. When it cannot be, the reader or the writer has passed the other:
// the one that needs fewer bytes for it.
std::int64_t level_from(std::uint32_t held, std::uint32_t size) {
    const std::uint32_t beyond = held - size;
    const std::uint32_t below = 0 - held;
    return held <= size || beyond <= below ? std::int64_t{held} : -std::int64_t{below};
}

// From here on everything that is moved counts.
void begin_counting(Fifo& entry, const zxfifoblock_ctt& fifo) {
    const std::uint32_t held = fifo.total_in - fifo.total_out;
    if (static_cast<std::uint32_t>(entry.level.load(kRelaxed)) != held) {
        entry.level.store(level_from(held, fifo.size), kRelease);
    }
    entry.highest.store(std::max(entry.highest.load(kRelaxed), entry.level.load(kRelaxed)),
                        kRelease);
    entry.counted_in.store(fifo.total_in, kRelease);
    entry.counted_out.store(fifo.total_out, kRelease);
    entry.epoch.store(g_epoch.load(kRelaxed), kRelease);
}

Fifo* entry_of(const zxfifoblock_ctt& fifo) {
    return g_fifos.entry_of(&fifo, [&fifo](Fifo& entry) {
        for (auto* const number : {&entry.in, &entry.out, &entry.overwritten, &entry.stale}) {
            number->store(0, kRelease);
        }
        entry.level.store(0, kRelease);
        entry.highest.store(0, kRelease);
        entry.size.store(fifo.size, kRelease);
        entry.resets.store(0, kRelease);
        entry.since_us.store(steady_us(), kRelease);
        entry.name.set(fifo.name, sizeof fifo.name);
        begin_counting(entry, fifo);
    });
}

void count_in(Fifo& entry, std::uint32_t n) {
    const std::int64_t level = entry.level.load(kRelaxed) + n;
    entry.level.store(level, kRelease);
    add_to(entry.counted_in, n);
    add_to(entry.in, std::uint64_t{n});
    if (level > entry.highest.load(kRelaxed)) {
        entry.highest.store(level, kRelease);
    }
    if (const std::int64_t beyond = level - entry.size.load(kRelaxed); beyond > 0) [[unlikely]] {
        add_to(entry.overwritten, static_cast<std::uint64_t>(std::min<std::int64_t>(beyond, n)));
    }
}

void count_out(Fifo& entry, std::uint32_t n) {
    const std::int64_t level = entry.level.load(kRelaxed) - n;
    entry.level.store(level, kRelease);
    add_to(entry.counted_out, n);
    add_to(entry.out, std::uint64_t{n});
    if (level < 0) [[unlikely]] {
        add_to(entry.stale, static_cast<std::uint64_t>(std::min<std::int64_t>(-level, n)));
    }
}

// The transfer began when the FIFO's lock was taken.
void trace_transfer(Span span, const zxfifoblock_ctt& fifo, std::uint32_t n) {
    if (is_tracing()) [[unlikely]] {
        if (const std::uint64_t since_ns = traced_since_ns(fifo.lock); since_ns != 0) {
            trace(span, since_ns, fifo.name, sizeof fifo.name, n);
        }
    }
}

cJSON* as_object(Fifo& entry, std::int64_t now_us) ZX_REQUIRES(g_asking) {
    const std::uint64_t id = entry.id.load(kAcquire);
    if (id == 0) {
        return nullptr;  // it is prepared for another FIFO just now
    }
    if (entry.sampled_id != id) {
        entry.sampled_id = id;
        entry.in_growth = entry.out_growth = Growth(entry.since_us.load(kAcquire));
    }
    const std::uint64_t in = entry.in.load(kAcquire);
    const std::uint64_t out = entry.out.load(kAcquire);
    entry.in_growth.see(in, now_us);
    entry.out_growth.see(out, now_us);

    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", entry.name.copy().text);
    add_address(object, "address", entry.record.load(kAcquire));
    add_number(object, "size_bytes", entry.size.load(kAcquire));
    add_number(object, "used_bytes", entry.level.load(kAcquire));
    add_number(object, "highest_bytes", entry.highest.load(kAcquire));
    add_number(object, "in_bytes", in);
    add_number(object, "out_bytes", out);
    add_number(object, "in_bytes_per_s", entry.in_growth.per_s());
    add_number(object, "out_bytes_per_s", entry.out_growth.per_s());
    add_number(object, "rates_over_us", entry.in_growth.over_us());
    add_number(object, "overwritten_bytes", entry.overwritten.load(kAcquire));
    add_number(object, "stale_bytes", entry.stale.load(kAcquire));
    add_number(object, "resets", entry.resets.load(kAcquire));
    if (entry.id.load(kRelaxed) != id) {  // it is another FIFO's by now
        cJSON_Delete(object);
        return nullptr;
    }
    return object;
}

}  // namespace

void fifo_seen(const zxfifoblock_ctt& fifo) {
    Fifo* const entry = entry_of(fifo);
    if (entry == nullptr || g_mode.load(std::memory_order_acquire) == 0) {
        return;
    }
    if (entry->epoch.load(kRelaxed) != g_epoch.load(kRelaxed)) [[unlikely]] {
        begin_counting(*entry, fifo);
    }
    if (const std::uint32_t n = fifo.total_in - entry->counted_in.load(kRelaxed); n != 0) {
        count_in(*entry, n);
        trace_transfer(Span::fifo_in, fifo, n);
    }
    if (const std::uint32_t n = fifo.total_out - entry->counted_out.load(kRelaxed); n != 0) {
        count_out(*entry, n);
        trace_transfer(Span::fifo_out, fifo, n);
    }
}

void fifo_reset(const zxfifoblock_ctt& fifo) {
    if (Fifo* const entry = entry_of(fifo); entry != nullptr) {
        begin_counting(*entry, fifo);
        add_to(entry->resets, 1U);
    }
}

void fifo_gone(const zxfifoblock_ctt& fifo) {
    g_fifos.forget(&fifo);
}

void begin_fifos_anew() {
    g_fifos.forget_other_threads();
    g_asking.forget_other_threads();
}

Answer answer_fifos(const Question&) {
    cJSON* const answer = cJSON_CreateObject();
    cJSON* const fifos = cJSON_AddArrayToObject(answer, "fifos");
    const MutexGuard guard(g_asking);
    const std::int64_t now_us = steady_us();
    g_fifos.for_each([&](Fifo& entry) {
        g_asking.is_held();
        if (cJSON* const object = as_object(entry, now_us); object != nullptr) {
            cJSON_AddItemToArray(fifos, object);
        }
    });
    add_number(answer, "left_out", g_fifos.left_out());
    return {answer, nullptr};
}

}  // namespace zx::diag
