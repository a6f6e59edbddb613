// Ten readers follow one writer through the shared list, compared with a deque of buffers under a
// std::shared_mutex, which readers search by time. At 1,000 nodes a second, a reader of the shared
// list searches each node by its time, from the head. At 100,000 it keeps the node that it has
// found and continues from there.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

#include "zxfifo.h"
#include "zxtime.h"

namespace {

constexpr std::uint32_t kPayload = 188;
constexpr std::uint64_t kSecondUs = 1000000;
constexpr std::uint64_t kRunUs = 5 * kSecondUs;
constexpr std::uint32_t kKeepSeconds = 2;
constexpr std::size_t kReaders = 10;
constexpr std::chrono::milliseconds kPause{1};  // sleep of a thread with nothing to do

// What a reader found. It found nothing new if `time` is not later than before.
struct Found {
    std::uint64_t time = 0;
    std::uint64_t number = 0;
};

class SharedList {
public:
    SharedList() {
        list_.keep_seconds = kKeepSeconds;
        zxfifo_api_shareListInit(&list_, "bench");
    }
    ~SharedList() { zxfifo_api_shareListDeinit(&list_); }
    SharedList(const SharedList&) = delete;
    SharedList& operator=(const SharedList&) = delete;

    void add(std::uint64_t number) {
        IdList_ctt* const node = zxfifo_api_shareListMalloc(kPayload, "bench");
        std::memcpy(node->data, &number, sizeof number);
        zxfifo_api_shareListIn(&list_, node);
    }
    // Finds the first node after a time.
    class ByTime {
    public:
        explicit ByTime(SharedList& list) : list_(list.list_) {}
        Found after(std::uint64_t time) {
            return found(zxfifo_api_shareListRead(&list_, time + 1));
        }

    private:
        zxsharelist_ctt& list_;
    };
    class Onwards {
    public:
        explicit Onwards(SharedList& list) : list_(list.list_) {}
        Found after(std::uint64_t time) {
            const IdList_ctt* const next = node_ != nullptr
                                               ? __atomic_load_n(&node_->next, __ATOMIC_ACQUIRE)
                                               : zxfifo_api_shareListRead(&list_, time + 1);
            node_ = next != nullptr ? next : node_;
            return found(next);
        }

    private:
        zxsharelist_ctt& list_;
        const IdList_ctt* node_ = nullptr;
    };

private:
    static Found found(const IdList_ctt* node) {
        Found found;
        if (node != nullptr) {
            found.time = node->time;
            std::memcpy(&found.number, node->data, sizeof found.number);
        }
        return found;
    }

    zxsharelist_ctt list_{};
};

class LockedDeque {
public:
    void add(std::uint64_t number) {
        auto data = std::make_unique<std::uint8_t[]>(kPayload);
        std::memcpy(data.get(), &number, sizeof number);
        const std::unique_lock held(mutex_);
        const std::uint64_t now = zxtime_api_us();
        nodes_.push_back({now, std::move(data)});
        if (now - last_drop_ > kSecondUs) {
            last_drop_ = now;
            while (now - nodes_.front().time >= kKeepSeconds * kSecondUs) {
                nodes_.pop_front();
            }
        }
    }
    class ByTime {
    public:
        explicit ByTime(LockedDeque& list) : list_(list) {}
        Found after(std::uint64_t time) {
            Found found;
            const std::shared_lock held(list_.mutex_);
            const auto node = std::partition_point(list_.nodes_.begin(), list_.nodes_.end(),
                                                   [=](const Node& n) { return n.time <= time; });
            if (node != list_.nodes_.end()) {
                found.time = node->time;
                std::memcpy(&found.number, node->data.get(), sizeof found.number);
            }
            return found;
        }

    private:
        LockedDeque& list_;
    };

private:
    struct Node {
        std::uint64_t time;
        std::unique_ptr<std::uint8_t[]> data;
    };
    std::shared_mutex mutex_;
    std::deque<Node> nodes_;
    std::uint64_t last_drop_ = 0;
};

struct Reader {
    std::uint64_t seen = 0;
    std::uint64_t largest_lag_us = 0;
    bool is_in_order = true;
};

// Reads until `is_over`, and then to the end of the list.
template <typename Way, typename List>
void follow(List& list, const std::atomic<bool>& is_over, Reader& reader) {
    Way way(list);
    std::uint64_t last = 0;
    std::uint64_t number = 0;
    for (;;) {
        const bool is_last_look = is_over;
        const Found found = way.after(last);
        if (found.time <= last) {
            if (is_last_look) {
                return;
            }
            std::this_thread::sleep_for(kPause);
            continue;
        }
        last = found.time;
        reader.is_in_order = reader.is_in_order && (reader.seen == 0 || found.number > number);
        number = found.number;
        ++reader.seen;
        const std::uint64_t now = zxtime_api_us();
        reader.largest_lag_us = std::max(reader.largest_lag_us, now - std::min(now, last));
    }
}

// Keeps the average rate, with bursts of some hundred nodes after each pause. Readers cannot
// distinguish nodes of the same microsecond, so each node waits for a new one.
template <typename List>
std::uint64_t feed(List& list, std::uint64_t rate) {
    const std::uint64_t start = zxtime_api_us();
    std::uint64_t count = 0;
    std::uint64_t last = 0;
    for (std::uint64_t now = start; now - start < kRunUs; now = zxtime_api_us()) {
        if (count >= (now - start) * rate / kSecondUs) {
            std::this_thread::sleep_for(kPause);
        } else if (now > last + 1) {
            list.add(count++);
            last = zxtime_api_us();
        }
    }
    return count;
}

template <typename List, typename Way>
void ten_readers(benchmark::State& state) {
    for (auto _ : state) {
        List list;
        std::atomic<bool> is_over{false};
        std::vector<Reader> readers(kReaders);
        std::vector<std::thread> threads;
        for (Reader& reader : readers) {
            threads.emplace_back([&] { follow<Way>(list, is_over, reader); });
        }
        const std::uint64_t count = feed(list, static_cast<std::uint64_t>(state.range(0)));
        is_over = true;
        std::for_each(threads.begin(), threads.end(), [](std::thread& t) { t.join(); });

        double least_seen = 1;
        std::uint64_t largest_lag_us = 0;
        for (const Reader& reader : readers) {
            if (!reader.is_in_order) {
                state.SkipWithError("a reader saw nodes out of order");
            }
            least_seen =
                std::min(least_seen, static_cast<double>(reader.seen) / static_cast<double>(count));
            largest_lag_us = std::max(largest_lag_us, reader.largest_lag_us);
        }
        state.counters["nodes"] = static_cast<double>(count);
        state.counters["least_seen"] = least_seen;
        state.counters["largest_lag_ms"] = static_cast<double>(largest_lag_us) / 1000;
    }
}
// Measures the processor time of all threads.
#define TEN_READERS(name, rate, ...)             \
    BENCHMARK_TEMPLATE(ten_readers, __VA_ARGS__) \
        ->Name(name)                             \
        ->Arg(rate)                              \
        ->Iterations(1)                          \
        ->MeasureProcessCPUTime()
TEN_READERS("shareList_ten_readers/library", 1000, SharedList, SharedList::ByTime);
TEN_READERS("shareList_ten_readers/locked-deque", 1000, LockedDeque, LockedDeque::ByTime);
TEN_READERS("shareList_ten_readers/library", 100000, SharedList, SharedList::Onwards);
TEN_READERS("shareList_ten_readers/locked-deque", 100000, LockedDeque, LockedDeque::ByTime);

}  // namespace
