#include "zxdiag/log.hpp"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string_view>

#include "internal/log.hpp"
#include "shared/controls.hpp"
#include "shared/line_buffer.hpp"
#include "shared/write_once.hpp"
#include "zxdiag.h"
#include "zxdiag/answers.hpp"
#include "zxdiag/crash.hpp"
#include "zxdiag/hooks.hpp"
#include "zxdiag/service.hpp"

int8_t zxdiag_log_isOn = 0;

namespace zx::diag {
namespace {

constexpr char kTag[] = "DIAG";
constexpr std::int64_t kMostLevel = 5;

constinit LineRing g_ring;
// Lines in memory that are written to the log must not be kept once more.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool t_is_writing_kept = false;

// What a logging library that the program brings itself may lack. It is looked up by name: with a
// weak reference, this library would still not start without the version node of the function.
struct LogFunctions {
    decltype(&zxdiag_log_setTap) set_tap;
    decltype(&zxdiag_log_overrideLevel) override_level;
    decltype(&zxdiag_log_restoreLevel) restore_level;
    decltype(&zxdiag_log_overrideTags) override_tags;
    decltype(&zxdiag_log_restoreTags) restore_tags;
    decltype(&zxdiag_log_tags) tags;
};
constinit LogFunctions g_log{};

template <typename Function>
bool look_up(Function& function, const char* name) {
    function = reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
    return function != nullptr;
}

// Finds all of them or none.
void look_up_log_functions() {
    LogFunctions found{};
    const bool has_all = look_up(found.set_tap, "zxdiag_log_setTap") &&
                         look_up(found.override_level, "zxdiag_log_overrideLevel") &&
                         look_up(found.restore_level, "zxdiag_log_restoreLevel") &&
                         look_up(found.override_tags, "zxdiag_log_overrideTags") &&
                         look_up(found.restore_tags, "zxdiag_log_restoreTags") &&
                         look_up(found.tags, "zxdiag_log_tags");
    g_log = has_all ? found : LogFunctions{};
}

const LogFunctions& log_functions() {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, look_up_log_functions);
    return g_log;
}

// The lines before a crash must not give way to later ones while they are being written.
void keep(const char* line, std::uint32_t size) {
    if (t_is_writing_kept || is_crashing()) {
        return;
    }
    while (size != 0 && (line[size - 1] == '\n' || line[size - 1] == '\r')) {
        --size;
    }
    g_ring.add(line, size);
}

// ------------------------------------------------------------------ settings

std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

// When a setting that was changed is set back. 0: it was not changed.
constinit std::int64_t g_level_until_ms = 0;
constinit std::int64_t g_tags_until_ms = 0;

// Keeps a notice in memory only. The log may block, and then nobody would answer questions.
#define ZX_KEEP(body, ...)                                                                         \
    zxdiag_log_keep("%s[%s][%s]" body "\r\n", zxlog_innerapi_logTime(), level_name(Level::notice), \
                    kTag, __VA_ARGS__)

void restore_level() {
    g_level_until_ms = 0;
    if (log_functions().restore_level() != 0) {
        ZX_KEEP("the level of the log is %u again", zxlog_api_getLoglevel());
    }
}

void restore_tags() {
    g_tags_until_ms = 0;
    if (log_functions().restore_tags() != 0) {
        ZX_KEEP("the log suppresses the tags '%s' again", strfilterTags);
    }
}

// NULL: the question can be answered.
const char* fault_of_change(std::int64_t seconds) {
    if (!is_service_thread()) {
        return "this question can only be asked on a socket";
    }
    if (log_functions().override_level == nullptr) {
        return "the program has a logging library of its own, whose settings cannot be changed";
    }
    return seconds == Question::kWrong ? "seconds=N needs a number from 1 to 86400" : nullptr;
}

std::int64_t seconds_of(const Question& question) {
    constexpr std::int64_t kUsual = 60;
    constexpr std::int64_t kMost = 86400;
    return question.number("seconds", kUsual, 1, kMost);
}

// ------------------------------------------------------------------- answers

// A line of the log in its parts. A line that the program wrote in another form is all text.
struct Parts {
    std::string_view at;
    std::string_view level;
    std::string_view tag;
    std::string_view text;
    std::int64_t level_number = 0;  // 0: the line has none
};

// Takes "[part]" off the text. Empty: there is none.
std::string_view take_bracket(std::string_view& text) {
    const std::size_t end = text.find(']');
    if (text.empty() || text[0] != '[' || end == std::string_view::npos) {
        return {};
    }
    const std::string_view part = text.substr(1, end - 1);
    text.remove_prefix(end + 1);
    return part;
}

Parts parts_of(const LineRing::Line& line) {
    Parts parts;
    parts.text = {line.text, line.size};
    if (line.size > 1 && line.text[1] >= '0' && line.text[1] <= '9') {
        parts.at = take_bracket(parts.text);
    }
    std::string_view rest = parts.text;
    const std::string_view name = take_bracket(rest);
    const std::string_view tag = take_bracket(rest);
    for (std::int64_t level = 1; level <= kMostLevel; ++level) {
        if (name == strLoglevel_simple[level] && !tag.empty()) {
            parts.level = name;
            parts.tag = tag;
            parts.text = rest;
            parts.level_number = level;
        }
    }
    return parts;
}

// Adds a text, in which a question mark takes the place of what is no UTF-8.
void add_text(cJSON* object, const char* key, std::string_view text) {
    char copy[LineRing::kLongest + 1];
    const std::size_t size = text.copy(copy, sizeof copy - 1);
    copy[size] = '\0';
    for (std::size_t at = 0; at < size;) {
        const std::size_t bytes = character_size(copy + at, size - at);
        if (bytes == 1 && static_cast<unsigned char>(copy[at]) >= 0x80) {
            copy[at] = '?';
        }
        at += bytes;
    }
    cJSON_AddStringToObject(object, key, copy);
}

cJSON* object_of(const Parts& parts) {
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "at", parts.at);
    add_text(object, "level", parts.level);
    add_text(object, "tag", parts.tag);
    add_text(object, "text", parts.text);
    return object;
}

// Which lines are wanted.
class Filter {
public:
    explicit Filter(const Question& question)
        : level_(question.number("level", kMostLevel, 0, kMostLevel)) {
        const char* const tag = question.value("tag");
        has_tag_ = tag != nullptr;
        std::snprintf(tag_, sizeof tag_, "%s", has_tag_ ? tag : "");
    }
    [[nodiscard]] bool is_wrong() const { return level_ == Question::kWrong; }
    [[nodiscard]] bool wants(const Parts& parts) const {
        return parts.level_number <= level_ && (!has_tag_ || parts.tag == tag_);
    }

private:
    std::int64_t level_;
    bool has_tag_;
    char tag_[Question::kLongest + 1];
};

constexpr char kWrongLevel[] = "level=L needs a number from 0 to 5";

// The last `most` lines, the oldest first.
cJSON* kept_lines(const Filter& filter, std::int64_t most) {
    cJSON* const lines = cJSON_CreateArray();
    const std::uint64_t begin = g_ring.begin();
    LineRing::Line line;
    for (std::uint64_t at = g_ring.end(); at != begin && most > 0;) {
        if (g_ring.read(--at, line) != LineRing::Found::line) {
            continue;
        }
        if (const Parts parts = parts_of(line); filter.wants(parts)) {
            cJSON_InsertItemInArray(lines, 0, object_of(parts));
            --most;
        }
    }
    return lines;
}

// Each line as it comes.
class Tail : public Series {
public:
    explicit Tail(const Filter& filter) : filter_(filter), at_(g_ring.end()) {}

    cJSON* next() override {
        LineRing::Line line;
        while (at_ != g_ring.end()) {
            const LineRing::Found found = g_ring.read(at_, line);
            if (found == LineRing::Found::unfinished && !has_waited_) {
                has_waited_ = true;  // until it is asked again
                break;
            }
            if (found != LineRing::Found::line) {
                skip();
                continue;
            }
            if (missed_ != 0) {
                break;
            }
            step_to(at_ + 1);
            if (const Parts parts = parts_of(line); filter_.wants(parts)) {
                return object_of(parts);
            }
        }
        return missed_ != 0 ? missed() : nullptr;
    }
    [[nodiscard]] bool is_over() const override { return !is_on(); }

private:
    void step_to(std::uint64_t at) {
        at_ = at;
        has_waited_ = false;
    }

    void skip() {
        const std::uint64_t to = std::max(at_ + 1, g_ring.begin());
        missed_ += to - at_;
        step_to(to);
    }

    cJSON* missed() {
        cJSON* const object = cJSON_CreateObject();
        cJSON_AddNumberToObject(object, "missed", static_cast<double>(missed_));
        missed_ = 0;
        return object;
    }

    Filter filter_;
    std::uint64_t at_;  // the next line
    std::uint64_t missed_ = 0;
    bool has_waited_ = false;  // for the line at `at_`
};

}  // namespace

void start_keeping_lines() {
    if (const auto set_tap = log_functions().set_tap; set_tap != nullptr) {
        set_tap(keep);
    }
    __atomic_store_n(&zxdiag_log_isOn, 1, __ATOMIC_RELAXED);
    handle_crashes();
}

void stop_keeping_lines() {
    leave_crashes_alone();
    if (g_level_until_ms != 0) {
        restore_level();
    }
    if (g_tags_until_ms != 0) {
        restore_tags();
    }
    __atomic_store_n(&zxdiag_log_isOn, 0, __ATOMIC_RELAXED);
    if (const auto set_tap = log_functions().set_tap; set_tap != nullptr) {
        set_tap(nullptr);
    }
}

void forget_lines() {
    leave_crashes_alone();
    __atomic_store_n(&zxdiag_log_isOn, 0, __ATOMIC_RELAXED);
    if (g_log.set_tap != nullptr) {
        g_log.set_tap(nullptr);
        g_log.restore_level();
        g_log.restore_tags();
    }
    g_level_until_ms = g_tags_until_ms = 0;
    g_ring.begin_anew();
}

std::uint64_t write_kept_lines(const char* why, LineRing::Line& room) {
    if (zxlog_api_getLoglevel() == 0) {
        return 0;
    }
    t_is_writing_kept = true;
    zxlog_innerapi_file("%s[%s][%s]%s: the last lines in memory, of all levels, begin here\r\n",
                        zxlog_innerapi_logTime(), level_name(Level::error), kTag, why);
    std::uint64_t written = 0;
    const std::uint64_t end = g_ring.end();
    for (std::uint64_t at = g_ring.begin(); at < end; ++at) {  // it may have moved past the end
        if (g_ring.read(at, room) == LineRing::Found::line) {
            zxlog_innerapi_file("| %s\r\n", room.text);
            ++written;
        }
    }
    zxlog_innerapi_file("%s[%s][%s]%s: the lines in memory end here (%llu)\r\n",
                        zxlog_innerapi_logTime(), level_name(Level::error), kTag, why,
                        static_cast<unsigned long long>(written));
    t_is_writing_kept = false;
    return written;
}

int ms_until_log_is_restored() {
    if (g_level_until_ms == 0 && g_tags_until_ms == 0) {
        return -1;
    }
    const std::int64_t due = g_level_until_ms == 0  ? g_tags_until_ms
                             : g_tags_until_ms == 0 ? g_level_until_ms
                                                    : std::min(g_level_until_ms, g_tags_until_ms);
    return static_cast<int>(std::max(due - now_ms(), std::int64_t{0}));
}

void restore_log_when_due() {
    if (g_level_until_ms != 0 && g_level_until_ms <= now_ms()) {
        restore_level();
    }
    if (g_tags_until_ms != 0 && g_tags_until_ms <= now_ms()) {
        restore_tags();
    }
}

Answer answer_log(const Question& question) {
    constexpr std::int64_t kUsual = 100;
    const std::int64_t most = question.number("lines", kUsual, 1, LineRing::kLines);
    const Filter filter(question);
    if (most == Question::kWrong) {
        return {error_object("lines=N needs a number from 1 to 4096"), nullptr};
    }
    if (filter.is_wrong()) {
        return {error_object(kWrongLevel), nullptr};
    }
    char tags[ZXLOG_FILTER_SIZE];
    if (const auto tell_tags = log_functions().tags; tell_tags != nullptr) {
        tell_tags(tags);
    } else {
        std::snprintf(tags, sizeof tags, "%s", strfilterTags);
    }
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "level", zxlog_api_getLoglevel());
    add_text(object, "tags", tags);
    cJSON_AddBoolToObject(object, "recording", is_on());
    cJSON_AddItemToObject(object, "lines", kept_lines(filter, most));
    return {object, nullptr};
}

Answer answer_level(const Question& question) {
    const std::int64_t level = question.number("level", Question::kWrong, 0, kMostLevel);
    const std::int64_t seconds = seconds_of(question);
    if (const char* const fault = fault_of_change(seconds); fault != nullptr) {
        return {error_object(fault), nullptr};
    }
    if (level == Question::kWrong) {
        return {error_object(kWrongLevel), nullptr};
    }
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "level", static_cast<double>(level));
    cJSON_AddNumberToObject(object, "before", zxlog_api_getLoglevel());
    cJSON_AddNumberToObject(object, "for_s", static_cast<double>(seconds));
    log_functions().override_level(static_cast<std::uint32_t>(level));
    g_level_until_ms = now_ms() + seconds * 1000;
    ZX_KEEP("the level of the log is %d for %d s", static_cast<int>(level),
            static_cast<int>(seconds));
    return {object, nullptr};
}

Answer answer_tags(const Question& question) {
    const char* const tags = question.value("tags");
    const std::int64_t seconds = seconds_of(question);
    if (const char* const fault = fault_of_change(seconds); fault != nullptr) {
        return {error_object(fault), nullptr};
    }
    if (tags == nullptr) {
        return {error_object("tags=T is missing"), nullptr};
    }
    cJSON* const object = cJSON_CreateObject();
    char before[ZXLOG_FILTER_SIZE];
    add_text(object, "tags", tags);
    add_text(object, "before", log_functions().tags(before));
    cJSON_AddNumberToObject(object, "for_s", static_cast<double>(seconds));
    log_functions().override_tags(tags);
    g_tags_until_ms = now_ms() + seconds * 1000;
    ZX_KEEP("the log suppresses the tags '%s' for %d s", tags, static_cast<int>(seconds));
    return {object, nullptr};
}

Answer answer_tail(const Question& question) {
    const Filter filter(question);
    if (filter.is_wrong()) {
        return {error_object(kWrongLevel), nullptr};
    }
    if (!is_on()) {
        return {error_object("the diagnosis is off"), nullptr};
    }
    return {nullptr, new (std::nothrow) Tail(filter)};
}

Answer answer_dump(const Question&) {
    LineRing::Line room;
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddNumberToObject(object, "written",
                            static_cast<double>(write_kept_lines("on request", room)));
    return {object, nullptr};
}

}  // namespace zx::diag

extern "C" void zxdiag_log_keep(const char* fmt, ...) {
    if (fmt == nullptr || __atomic_load_n(&zxdiag_log_isOn, __ATOMIC_RELAXED) == 0) {
        return;
    }
    const zx::ErrnoKept errno_kept;
    zx::LineBuffer line;
    std::va_list args;
    va_start(args, fmt);
    line.format(fmt, args);
    va_end(args);
    zx::diag::keep(line.data(), static_cast<std::uint32_t>(line.size()));
}
