#include "view.hpp"
#include "terminal/amount.hpp"
#include "terminal/text.hpp"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace ctl {
namespace {

using terminal::amount_text, terminal::clean, terminal::Column, terminal::Table, terminal::title_of;

constexpr std::size_t kMostFields = 12;  // of an array that this program does not know

const std::vector<View>& known_views() {
    static const std::vector<View> views = {
        {"locks",
         {{"name", "lock", "", ""},
          {"holder", "holder", "", "held"},
          {"holder_thread", "thread", "", "held"},
          {"held_us", "held for", "", "held"},
          {"waiting", "waiting", "", ""},
          {"longest_wait_us", "longest wait", "", ""},
          {"contended", "contended", "", ""},
          {"longest_hold_us", "longest hold", "", ""},
          {"taken", "taken", "", ""}},
         4},
        {"waits",
         {{"thread", "thread", "", ""},
          {"tid", "tid", "", ""},
          {"waiting_us", "waits for", "", ""},
          {"lock", "lock", "", ""},
          {"place", "at", "", ""},
          {"holder_thread", "held by", "", ""},
          {"holder", "held at", "", ""}},
         2},
        {"places",
         {{"name", "name", "", ""},
          {"file", "place", "line", ""},
          {"bytes", "bytes", "", ""},
          {"buffers", "buffers", "", ""},
          {"bytes_per_s", "growth", "", ""},
          {"oldest_s", "oldest", "", ""},
          {"made", "made", "", ""},
          {"freed", "freed", "", ""}},
         2},
        {"fifos",
         {{"name", "FIFO", "", ""},
          {"use_percent", "use", "", ""},
          {"size_bytes", "size", "", ""},
          {"highest_bytes", "highest", "", ""},
          {"in_bytes_per_s", "in", "", ""},
          {"out_bytes_per_s", "out", "", ""},
          {"overwritten_bytes", "overwritten", "", ""},
          {"stale_bytes", "stale", "", ""},
          {"resets", "resets", "", ""}},
         1},
        {"lists",
         {{"name", "list", "", ""},
          {"nodes", "nodes", "", ""},
          {"span_us", "span", "", ""},
          {"keep_s", "keeps", "", ""},
          {"dropped", "dropped", "", ""}},
         0},
        {"threads",
         {{"name", "thread", "", ""},
          {"tid", "tid", "", ""},
          {"cpu_percent", "processor", "", ""},
          {"cpu_us", "time", "", ""},
          {"state_name", "state", "", ""},
          {"waits_for", "waits for", "", ""}},
         2},
        {"kinds", {{"kind", "kind", "", ""}, {"count", "count", "", ""}}, 1},
    };
    return views;
}

// Places with a difference to an earlier time.
const View& difference_view() {
    static const View view = {"places",
                              {{"name", "name", "", ""},
                               {"file", "place", "line", ""},
                               {"more_bytes", "more bytes", "", ""},
                               {"more_buffers", "more buffers", "", ""},
                               {"bytes", "bytes", "", ""},
                               {"buffers", "buffers", "", ""},
                               {"oldest_s", "oldest", "", ""}},
                              2};
    return view;
}

View view_of_unknown(const cJSON* array) {
    View view;
    view.array = array->string != nullptr ? array->string : "";
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        const cJSON* its = nullptr;
        cJSON_ArrayForEach(its, item) {
            if (its->string == nullptr || view.fields.size() == kMostFields) {
                break;
            }
            if (std::ranges::find(view.fields, its->string, &Field::key) == view.fields.end()) {
                view.fields.push_back({its->string, title_of(its->string), "", ""});
            }
        }
    }
    return view;
}

bool is_shown(const Field& field, const cJSON* item) {
    return field.only_if.empty() || cJSON_IsTrue(member(item, field.only_if.c_str())) != 0;
}

std::string cell(const Field& field, const cJSON* item) {
    const cJSON* const value = member(item, field.key.c_str());
    if (!is_shown(field, item) || value == nullptr) {
        return "-";
    }
    std::string text = value_text(field.key, value);
    if (!field.also.empty()) {
        text += ':' + value_text(field.also, member(item, field.also.c_str()));
    }
    return text;
}

bool is_number(const cJSON* value) {
    return cJSON_IsNumber(value) != 0 || cJSON_IsArray(value) != 0;
}

// What a row is sorted by: what is a number or has a count comes first.
struct Rank {
    bool is_number = false;
    double number = 0;
    std::string_view text;
};

Rank rank_of(const Field& field, const cJSON* item) {
    const cJSON* const value = member(item, field.key.c_str());
    if (value == nullptr || !is_shown(field, item)) {
        return {};
    }
    if (cJSON_IsString(value) != 0) {
        return {false, 0, value->valuestring};
    }
    return {is_number(value),
            cJSON_IsArray(value) != 0 ? cJSON_GetArraySize(value) : value->valuedouble,
            {}};
}

bool comes_before(const Rank& a, const Rank& b) {
    return std::tuple(!a.is_number, -a.number, a.text) <
           std::tuple(!b.is_number, -b.number, b.text);
}

// Rows that are equal in one column are sorted by the next.
bool row_comes_before(const View& view, const cJSON* a, const cJSON* b) {
    for (std::size_t i = view.sorted_by; i < view.fields.size(); ++i) {
        const Rank its = rank_of(view.fields[i], a);
        const Rank other = rank_of(view.fields[i], b);
        if (comes_before(its, other) || comes_before(other, its)) {
            return comes_before(its, other);
        }
    }
    return false;
}

std::string place_key(const cJSON* place) {
    const cJSON* const file = member(place, "file");
    return value_text("name", member(place, "name")) + '\n' + value_text("file", file) + ':' +
           value_text("line", member(place, "line"));
}

void add_difference(cJSON* place, double buffers, double bytes) {
    for (const char* const key : {"more_buffers", "more_bytes"}) {
        cJSON_DeleteItemFromObjectCaseSensitive(place, key);
    }
    cJSON_AddNumberToObject(place, "more_buffers", buffers);
    cJSON_AddNumberToObject(place, "more_bytes", bytes);
}

}  // namespace

View view_of(const cJSON* array) {
    const std::string_view name = array->string != nullptr ? array->string : "";
    if (name == "places" && member(array->child, "more_bytes") != nullptr) {
        return difference_view();
    }
    const auto found = std::ranges::find(known_views(), name, &View::array);
    return found != known_views().end() ? *found : view_of_unknown(array);
}

Table table_of(const View& view, const cJSON* array, bool reversed) {
    std::vector<const cJSON*> items;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, array) {
        if (cJSON_IsObject(item) != 0) {
            items.push_back(item);
        }
    }
    std::ranges::stable_sort(items, [&](const cJSON* a, const cJSON* b) {
        return reversed ? row_comes_before(view, b, a) : row_comes_before(view, a, b);
    });
    std::vector<Column> columns;
    for (const Field& field : view.fields) {
        columns.push_back({field.title, std::ranges::any_of(items, [&](const cJSON* its) {
                               return field.also.empty() &&
                                      is_number(member(its, field.key.c_str()));
                           })});
    }
    Table table(std::move(columns));
    for (const cJSON* const its : items) {
        std::vector<std::string> row;
        for (const Field& field : view.fields) {
            row.push_back(cell(field, its));
        }
        table.add(std::move(row));
    }
    return table;
}

std::string value_text(std::string_view key, const cJSON* value) {
    if (cJSON_IsString(value) != 0) {
        return *value->valuestring != '\0' ? clean(value->valuestring) : "-";
    }
    if (cJSON_IsNumber(value) != 0) {
        return amount_text(key, value->valuedouble);
    }
    if (cJSON_IsBool(value) != 0) {
        return cJSON_IsTrue(value) != 0 ? "yes" : "no";
    }
    return cJSON_IsArray(value) != 0 || cJSON_IsObject(value) != 0
               ? std::to_string(cJSON_GetArraySize(value))
               : "-";
}

void complete(cJSON* answer) {
    cJSON* fifo = nullptr;
    cJSON_ArrayForEach(fifo, member(answer, "fifos")) {
        const double size = number_member(fifo, "size_bytes");
        if (size > 0) {
            cJSON_DeleteItemFromObjectCaseSensitive(fifo, "use_percent");
            cJSON_AddNumberToObject(fifo, "use_percent",
                                    100 * number_member(fifo, "used_bytes") / size);
        }
    }
}

void subtract(cJSON* later, const cJSON* earlier) {
    std::map<std::string, const cJSON*> before;
    const cJSON* old = nullptr;
    cJSON_ArrayForEach(old, member(earlier, "places")) {
        before.emplace(place_key(old), old);
    }
    cJSON* const places = cJSON_GetObjectItemCaseSensitive(later, "places");
    for (cJSON* place = places != nullptr ? places->child : nullptr; place != nullptr;) {
        cJSON* const next = place->next;
        const auto found = before.find(place_key(place));
        const cJSON* const then = found != before.end() ? found->second : nullptr;
        const double buffers = number_member(place, "buffers") - number_member(then, "buffers");
        const double bytes = number_member(place, "bytes") - number_member(then, "bytes");
        if (cJSON_IsObject(place) == 0 || (buffers == 0 && bytes == 0)) {
            cJSON_Delete(cJSON_DetachItemViaPointer(places, place));
        } else {
            add_difference(place, buffers, bytes);
        }
        if (found != before.end()) {
            before.erase(found);
        }
        place = next;
    }
    // What is left is gone.
    for (const auto& [key, place] : before) {
        if (cJSON_IsArray(places) != 0 && number_member(place, "bytes") != 0) {
            cJSON* const gone = cJSON_Duplicate(place, 1);
            add_difference(gone, -number_member(place, "buffers"), -number_member(place, "bytes"));
            cJSON_ReplaceItemInObjectCaseSensitive(gone, "buffers", cJSON_CreateNumber(0));
            cJSON_ReplaceItemInObjectCaseSensitive(gone, "bytes", cJSON_CreateNumber(0));
            cJSON_AddItemToArray(places, gone);
        }
    }
}

}  // namespace ctl
