#include "status/report.hpp"

#include <memory>
#include <new>

#include "common/number.hpp"
#include "zxcommon.h"
#include "zxjson.h"
#include "zxmem.h"

namespace relay {
namespace {

constexpr std::size_t kRowSize =
    580 + 128;  // as zxmem_api_info() requires, and room for a file name
constexpr std::size_t kTableSize = 1024;
constexpr std::size_t kSpareRows = 4096;

constexpr std::string_view kRowBegin = "<tr>";
constexpr std::string_view kCellBegin = "<th align=\"left\">";
constexpr std::string_view kCellEnd = "</th><th align=\"left\"></th>";
constexpr std::string_view kTotalBegin = "leak:";
constexpr std::string_view kTotalEnd = " MB</h4>";

struct Free {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
    void operator()(char* text) const { cJSON_free(text); }
};

template <class T>
T* need(T* made) {
    if (made == nullptr) {
        throw std::bad_alloc();
    }
    return made;
}

void add(cJSON* object, const char* key, std::uint64_t number) {
    // Raw text, because a double would round numbers of more than 15 digits.
    need(cJSON_AddRawToObject(object, key, std::to_string(number).c_str()));
}

void add(cJSON* object, const char* key, const std::string& text) {
    need(cJSON_AddStringToObject(object, key, text.c_str()));
}

cJSON* add_object(cJSON* object, const char* key) {
    return need(cJSON_AddObjectToObject(object, key));
}

cJSON* add_array(cJSON* object, const char* key) {
    return need(cJSON_AddArrayToObject(object, key));
}

cJSON* append_object(cJSON* array) {
    cJSON* const object = need(cJSON_CreateObject());
    cJSON_AddItemToArray(array, object);
    return object;
}

// Returns the text between `begin` and `end`, and removes everything up to the end of `end` from
// `text`. Returns an empty string if `begin` is not found.
std::string cut(std::string_view& text, std::string_view begin, std::string_view end) {
    const std::size_t from = text.find(begin);
    if (from == std::string_view::npos) {
        return {};
    }
    text.remove_prefix(from + begin.size());
    const std::size_t to = text.find(end);
    std::string found(text.substr(0, to));
    text.remove_prefix(to == std::string_view::npos ? text.size() : to + end.size());
    return found;
}

// The allocator offers its list only as HTML, so this takes the HTML apart.
void add_memory(cJSON* root, std::string_view table) {
    cJSON* const memory = add_object(root, "memory");
    cJSON* const rows = add_array(memory, "rows");
    std::uint64_t count = 0;
    cut(table, kRowBegin, "</tr>");  // the titles
    while (table.starts_with(kRowBegin)) {
        cJSON* const row = append_object(rows);
        const auto cell = [&] { return cut(table, kCellBegin, kCellEnd); };
        add(row, "number", tools::parse_number(cell()).value_or(0));
        for (const char* key : {"address", "name", "time", "class", "size", "file"}) {
            add(row, key, cell());
        }
        add(row, "line", tools::parse_number(cell()).value_or(0));
        cut(table, "", "</tr>");
        ++count;
    }
    add(memory, "buffers", count);
    add(memory, "total", cut(table, kTotalBegin, kTotalEnd));
}

void add_counters(cJSON* object, const Counters& counters, const History& history) {
    const Rates now = history.latest();
    cJSON* const in = add_object(object, "in");
    add(in, "bytes", counters.bytes_in);
    add(in, "bytes_per_sec", now.in);
    add(in, "messages", counters.messages_in);
    add(in, "bytes_no_stream", counters.bytes_no_stream);
    add(in, "datagrams_lost", counters.datagrams_lost);
    cJSON* const out = add_object(object, "out");
    add(out, "bytes", counters.bytes_out);
    add(out, "bytes_per_sec", now.out);
    cJSON* const dropped = add_object(object, "dropped_messages");
    add(dropped, "fifo_full", counters.dropped_fifo_full);
    add(dropped, "slow_clients", counters.dropped_slow_client);
}

// `channel`: null if there is none.
void add_fifo(cJSON* object, const Channel* channel) {
    cJSON* const fifo = add_object(object, "fifo");
    need(cJSON_AddNumberToObject(fifo, "fill", channel != nullptr ? channel->fill_ratio() : 0));
    add(fifo, "size", channel != nullptr ? channel->settings().fifo_bytes : 0);
}

void add_store(cJSON* object, const StoreView& stored) {
    cJSON* const store = add_object(object, "store");
    add(store, "bytes", stored.bytes);
    add(store, "nodes", stored.nodes);
}

void add_history(cJSON* object, const History& history) {
    cJSON* const place = add_object(object, "history");
    add(place, "step_sec", 1);
    cJSON* const in = add_array(place, "in_bytes_per_sec");
    cJSON* const out = add_array(place, "out_bytes_per_sec");
    for (const Rates& rates : history.rates()) {
        cJSON_AddItemToArray(in, need(cJSON_CreateRaw(std::to_string(rates.in).c_str())));
        cJSON_AddItemToArray(out, need(cJSON_CreateRaw(std::to_string(rates.out).c_str())));
    }
}

// The sums of all channels, and the FIFO that is fullest.
void add_totals(cJSON* root, const Report& report) {
    const Channel* fullest = nullptr;
    for (const Track& track : report.tracks) {
        const bool is_fuller =
            fullest == nullptr || track.channel->fill_ratio() > fullest->fill_ratio();
        fullest = is_fuller ? track.channel.get() : fullest;
    }
    StoreView stored;
    for (const StoreView& store : report.snapshot.stores) {
        stored.bytes += store.bytes;
        stored.nodes += store.nodes;
    }
    add_counters(root, report.total, report.history);
    add_fifo(root, fullest);
    add_store(root, stored);
    add_history(root, report.history);
}

void add_channels(cJSON* root, const Report& report) {
    cJSON* const channels = add_array(root, "channels");
    for (const auto& [channel, history] : report.tracks) {
        cJSON* const object = append_object(channels);
        const Counters counters = channel->stats.read();
        add(object, "name", channel->name());
        add(object, "source", channel->settings().source);
        add(object, "clients", counters.clients);
        add_counters(object, counters, history);
        add_fifo(object, channel.get());
        add_store(object, stored_of(report.snapshot, channel->name()));
        add_history(object, history);
    }
}

void add_clients(cJSON* root, const Snapshot& snapshot) {
    cJSON* const clients = add_array(root, "clients");
    for (const ClientView& view : snapshot.clients) {
        cJSON* const client = append_object(clients);
        add(client, "id", view.number);
        add(client, "channel", view.channel);
        add(client, "address", view.address);
        add(client, "bytes_per_sec", view.bytes_per_sec);
        add(client, "bytes_sent", view.bytes_sent);
        add(client, "bytes_waiting", view.waiting);
        add(client, "dropped_messages", view.dropped);
        need(cJSON_AddBoolToObject(client, "is_shifted", view.is_shifted));
    }
}

void add_locks(cJSON* root, const Snapshot& snapshot) {
    cJSON* const locks = add_array(root, "locks");
    for (const LockView& view : snapshot.locks) {
        cJSON* const lock = append_object(locks);
        add(lock, "name", view.name);
        add(lock, "holder", view.holder);
    }
}

}  // namespace

std::string memory_table(std::uint64_t tracked_buffers) {
    // The count may be a second old, so the buffer is larger than needed. Pages that are never
    // written cost no memory.
    const std::size_t size = kTableSize + kRowSize * (2 * tracked_buffers + kSpareRows);
    const auto text = std::make_unique_for_overwrite<char[]>(size);
    text[0] = '\0';
    zxmem_api_info(text.get(), "The allocator does not keep a list of its buffers.");
    return text.get();
}

StoreView stored_of(const Snapshot& snapshot, const std::string& channel) {
    StoreView sum{channel};
    for (const StoreView& store : snapshot.stores) {
        sum.bytes += store.channel == channel ? store.bytes : 0;
        sum.nodes += store.channel == channel ? store.nodes : 0;
    }
    return sum;
}

std::string to_json(const Report& report, const std::string* memory) {
    const std::unique_ptr<cJSON, Free> root(need(cJSON_CreateObject()));
    add(root.get(), "version", std::string(zxcommon_api_version()));
    add(root.get(), "source",
        report.tracks.empty() ? "" : report.tracks.front().channel->settings().source);
    add(root.get(), "output", report.output);
    add(root.get(), "uptime_sec", report.uptime_sec);
    need(cJSON_AddBoolToObject(root.get(), "can_disconnect", report.can_disconnect));
    add_totals(root.get(), report);
    add_channels(root.get(), report);
    add_clients(root.get(), report.snapshot);
    add_locks(root.get(), report.snapshot);
    if (memory != nullptr) {
        add_memory(root.get(), *memory);
    }
    const std::unique_ptr<char, Free> text(need(cJSON_PrintUnformatted(root.get())));
    return text.get();
}

}  // namespace relay
