// Shared lists: their nodes, their span in time, and what they dropped.
//
// The thread that adds to a list or drops from it counts here, so one at a time changes an entry.
#include "zxdiag/lists.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "zxdiag/answers.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"
#include "zxdiag/known.hpp"
#include "zxdiag/shared_text.hpp"
#include "zxfifo.h"

namespace zx::diag {
namespace {

constexpr std::size_t kMostLists = 1024;
constexpr char kLockPrefix[] = "zxfifo_lock_";
constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr auto kRelease = std::memory_order_release;
constexpr auto kAcquire = std::memory_order_acquire;

struct alignas(64) List {
    std::atomic<const void*> record{};
    std::atomic<std::uint64_t> id{};
    std::atomic<const void*> head{};  // only compared
    std::atomic<std::uint64_t> oldest{};
    std::atomic<std::uint64_t> newest{};
    std::atomic<std::uint64_t> dropped{};
    std::atomic<std::uint32_t> nodes{};
    std::atomic<std::uint32_t> keep_s{};
    SharedText<136> name;
};

constinit Known<List, kMostLists> g_lists;

// A list has no name, but its lock has.
void prepare(List& entry, const zxsharelist_ctt& list) {
    const bool is_named = std::strncmp(list.lock.name, kLockPrefix, sizeof kLockPrefix - 1) == 0;
    const std::size_t skipped = is_named ? sizeof kLockPrefix - 1 : 0;
    entry.name.set(list.lock.name + skipped, sizeof list.lock.name - skipped);
    entry.head.store(nullptr, kRelease);
    for (auto* const number : {&entry.oldest, &entry.newest, &entry.dropped}) {
        number->store(0, kRelease);
    }
    entry.nodes.store(0, kRelease);
    entry.keep_s.store(list.keep_seconds, kRelease);
}

cJSON* as_object(const List& entry) {
    const std::uint64_t id = entry.id.load(kAcquire);
    if (id == 0) {
        return nullptr;  // it is prepared for another list just now
    }
    const std::uint32_t nodes = entry.nodes.load(kAcquire);
    const std::uint64_t oldest = entry.oldest.load(kAcquire);
    const std::uint64_t newest = entry.newest.load(kAcquire);
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "name", entry.name.copy().text);
    add_address(object, "address", entry.record.load(kAcquire));
    add_number(object, "nodes", nodes);
    add_number(object, "span_us", nodes != 0 && newest > oldest ? newest - oldest : 0);
    add_number(object, "keep_s", entry.keep_s.load(kAcquire));
    add_number(object, "dropped", entry.dropped.load(kAcquire));
    if (entry.id.load(kRelaxed) != id) {  // it is another list's by now
        cJSON_Delete(object);
        return nullptr;
    }
    return object;
}

}  // namespace

void list_changed(const zxsharelist_ctt& list, std::uint32_t dropped) {
    List* const entry = g_lists.entry_of(&list, [&list](List& fresh) { prepare(fresh, list); });
    if (entry == nullptr) {
        return;
    }
    // The first node is hardly ever in the processor's cache, so it is only read when it is
    // another. A new one may be at the address of an old one, but then it is the only one.
    if (entry->head.load(kRelaxed) != list.head || list.head == list.tail) {
        entry->head.store(list.head, kRelease);
        entry->oldest.store(list.head != nullptr ? list.head->time : 0, kRelease);
    }
    entry->newest.store(list.newest, kRelease);
    entry->nodes.store(list.count, kRelease);
    entry->keep_s.store(list.keep_seconds, kRelease);
    add_to(entry->dropped, std::uint64_t{dropped});
}

void list_gone(const zxsharelist_ctt& list) {
    g_lists.forget(&list);
}

void begin_lists_anew() {
    g_lists.forget_other_threads();
}

Answer answer_lists(const Question&) {
    cJSON* const answer = cJSON_CreateObject();
    cJSON* const lists = cJSON_AddArrayToObject(answer, "lists");
    g_lists.for_each([&](const List& entry) {
        if (cJSON* const object = as_object(entry); object != nullptr) {
            cJSON_AddItemToArray(lists, object);
        }
    });
    add_number(answer, "left_out", g_lists.left_out());
    return {answer, nullptr};
}

}  // namespace zx::diag
