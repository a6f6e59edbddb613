// Runs sequences of operations on list pools and shared lists, against std::deque. The input
// controls the clock: it stands still, goes on, or goes back for a moment. Nodes are taken out and
// changed, as a program may do.
#include <array>
#include <deque>

#include "asked.hpp"
#include "support.hpp"
#include "zxfifo.h"

namespace {

using zx::fuzz::Input;
using zx::fuzz::require;

constexpr std::uint64_t kSecond = 1000000;
constexpr std::uint64_t kStart = 1700000000 * kSecond;
std::uint64_t g_now;

bool is_blank(const std::uint8_t* data, std::size_t size) {
    return std::all_of(data, data + size, [](std::uint8_t byte) { return byte == 0; });
}

// A queue, and the nodes that it should have.
struct Queue {
    zxfifolist_ctt* head = nullptr;
    std::deque<zxfifolist_ctt*> nodes;

    void in(zxfifolist_ctt* node) {
        zxfifo_api_listIn(&head, node);
        nodes.push_back(node);
    }
    zxfifolist_ctt* out() {
        zxfifolist_ctt* const node = zxfifo_api_listOut(&head);
        require(node == (nodes.empty() ? nullptr : nodes.front()), "the first node");
        if (node != nullptr) {
            require(node->count == nodes.size() && node->next == head, "a node as it was");
            nodes.pop_front();
        }
        return node;
    }
    void reset() {
        zxfifo_api_listReset(&head);
        require(head == nullptr, "an empty queue");
        nodes.clear();
    }
    void check() const {
        require(zxfifo_api_listTotalNum(&head) == nodes.size(), "the length of a queue");
        const zxfifolist_ctt* at = head;
        for (const zxfifolist_ctt* const node : nodes) {
            require(at == node && at->count == nodes.size(), "a node of a queue");
            at = at->next;
        }
        require(at == nullptr, "the end of a queue");
    }
};

class Queues {
public:
    ~Queues() {
        for (Queue& queue : queues_) {
            queue.reset();
        }
    }
    void run(Input& input) {
        Queue& queue = queues_[input.take_below(queues_.size())];
        const std::size_t what = input.take_below(5);
        if (what < 2) {
            const auto size = input.take<std::uint8_t>();
            zxfifolist_ctt* const node = zxfifo_api_listMalloc(size, "fuzz");
            require(node->size == size && is_blank(node->data, size), "a new node");
            std::memset(node->data, 1, size);
            queue.in(node);
        } else if (what == 4) {
            queue.reset();
        } else if (zxfifolist_ctt* node = queue.out(); node != nullptr && what == 2) {
            zxfifo_api_listDemalloc(&node);
        } else if (node != nullptr) {
            queues_[input.take_below(queues_.size())].in(node);
        }
        for (const Queue& each : queues_) {
            each.check();
        }
    }

private:
    std::array<Queue, 3> queues_;
};

class Shared {
public:
    explicit Shared(std::uint32_t keep_seconds) {
        list_.keep_seconds = keep_seconds;
        require(zxfifo_api_shareListInit(&list_, "fuzz") == 0 &&
                    std::strcmp(list_.lock.name, "zxfifo_lock_fuzz") == 0,
                "a list");
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    ~Shared() { zxfifo_api_shareListDeinit(&list_); }

    void run(Input& input) {
        switch (input.take_below(10)) {
            case 0:
            case 1:
            case 2:
                return in(input.take<std::uint8_t>());
            case 3:
            case 4:
            case 5:
                return read(input.take<std::int32_t>());
            case 6:
                zxfifo_api_shareListDropTimeout(&list_);
                return drop();
            case 7:
                return take_out(input.take<std::uint8_t>());
            case 8:
                return change(input.take<std::uint8_t>(), input.take<std::uint8_t>());
            default:
                zxfifo_api_shareListReset(&list_);
                dropped_ += nodes_.size();
                nodes_.clear();
        }
    }
    void check() const {
        require(zxfifo_api_shareListTotalNum(&list_) == nodes_.size(), "the length of a list");
        const IdList_ctt* at = list_.head;
        for (const Node& node : nodes_) {
            require(at == node.at && at->time == node.time, "a node of a list");
            at = at->next;
        }
        require(at == nullptr && list_.tail == (nodes_.empty() ? nullptr : nodes_.back().at),
                "the end of a list");
    }

    // What the diagnosis says. It does not see a node that the program takes out or changes itself.
    void check_answer() {
        zxfifo_api_shareListReset(&list_);
        dropped_ += nodes_.size();
        nodes_.clear();
        list_.drop_timer = looked_ = g_now;  // not now
        in(8);
        g_now += kSecond / 2;
        in(8);
        const zx::test::Asked answer("lists");
        const auto is = [&](const char* key, std::uint64_t expected) {
            require(answer.number("lists", &list_, key) == static_cast<double>(expected), key);
        };
        require(answer.text("lists", &list_, "name") == "fuzz", "the name in the answer");
        is("nodes", 2);
        is("span_us", kSecond / 2);
        is("keep_s", list_.keep_seconds);
        is("dropped", dropped_);
    }

    // Makes a node `by` microseconds old, and checks whether the list keeps it.
    void age(std::uint64_t by) {
        in(8);
        require(list_.newest == g_now, "when the newest node came");
        g_now += by;
        zxfifo_api_shareListDropTimeout(&list_);
        drop();
        check();
    }

private:
    struct Node {
        IdList_ctt* at;
        std::uint64_t time;
    };

    void in(std::uint32_t size) {
        IdList_ctt* const node = zxfifo_api_shareListMalloc(size, "fuzz");
        require(node->size == size && is_blank(node->data, size), "a new node");
        nodes_.push_back({node, g_now});
        zxfifo_api_shareListIn(&list_, node);
        if (g_now < looked_ || g_now - looked_ > kSecond) {
            looked_ = g_now;
            drop();
        }
    }
    // A program may do this while it holds the list's lock.
    void take_out(std::size_t which) {
        if (nodes_.empty()) {
            return;
        }
        const auto node = nodes_.begin() + static_cast<std::ptrdiff_t>(which % nodes_.size());
        IdList_ctt* taken = node->at;
        zxlock_api_obtain(&list_.lock, __func__, __LINE__);
        IdList_ctt* const before = node == nodes_.begin() ? nullptr : (node - 1)->at;
        (before == nullptr ? list_.head : before->next) = taken->next;
        list_.tail = list_.tail == taken ? before : list_.tail;
        --list_.count;
        zxlock_api_release(&list_.lock, __func__, __LINE__);
        zxfifo_api_shareListDemalloc(&taken);
        nodes_.erase(node);
    }
    void change(std::size_t which, std::uint64_t step) {
        if (nodes_.empty()) {
            return;
        }
        Node& node = nodes_[which % nodes_.size()];
        node.time = g_now - step * kSecond / 16;
        zxlock_api_obtain(&list_.lock, __func__, __LINE__);
        node.at->time = node.time;
        zxlock_api_release(&list_.lock, __func__, __LINE__);
    }
    // A node from the future counts as old, too. Long times overflow 32 bits with a sign.
    void drop() {
        const auto keep = static_cast<std::uint64_t>(
            static_cast<std::int32_t>(list_.keep_seconds * std::uint32_t{kSecond}));
        while (!nodes_.empty() &&
               (g_now < nodes_.front().time || g_now - nodes_.front().time >= keep)) {
            nodes_.pop_front();
            ++dropped_;
        }
    }
    void read(std::int32_t offset) {
        const std::uint64_t since =
            offset % 16 == 0 ? 0 : g_now + static_cast<std::uint64_t>(offset / 16 % 8000000);
        IdList_ctt* const found = zxfifo_api_shareListRead(&list_, since);
        const auto expected = std::find_if(
            nodes_.begin(), nodes_.end(), [since](const Node& node) { return node.time >= since; });
        if (expected != nodes_.end()) {
            require(found == expected->at, "the first node since then");
        } else {
            require(found == (nodes_.empty() ? nullptr : nodes_.back().at), "the newest node");
        }
    }

    zxsharelist_ctt list_{};
    std::deque<Node> nodes_;
    std::uint64_t looked_ = 0;
    std::size_t dropped_ = 0;
};

}  // namespace

// This comes before the logging library's function, from which the library takes the time.
extern "C" std::uint64_t zxlog_api_us(void) {
    return g_now;
}

// Runs longer times than seeds would reach.
void zx_fuzz_sweep() {
    for (const std::uint32_t seconds : {2147U, 2148U, 4294U, 4295U, 8590U}) {
        for (const std::uint64_t age :
             {std::uint64_t{32703}, std::uint64_t{32704}, 2147 * kSecond, 2148 * kSecond,
              std::uint64_t{UINT32_MAX}, 5000 * kSecond}) {
            g_now = kStart;
            Shared(seconds).age(age);
        }
    }
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input({data, std::min<std::size_t>(size, 1024)});
    g_now = kStart;
    zxdiag_api_start();
    Queues queues;
    Shared first(static_cast<std::uint32_t>(input.take_below(8)));
    Shared second(static_cast<std::uint32_t>(input.take_below(2148)));
    while (!input.empty()) {
        const auto what = input.take<std::uint8_t>();
        g_now += what >= 128 ? (what & 127U) * 50000 : 0;
        g_now -= what == 64 ? kSecond : 0;
        if (what % 4 == 0) {
            queues.run(input);
            continue;
        }
        Shared& shared = what % 4 == 1 ? second : first;
        shared.run(input);
        shared.check();
    }
    first.check_answer();
    second.check_answer();
    return 0;
}
