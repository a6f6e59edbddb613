#include "zxdiag/answers.hpp"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iterator>
#include <string_view>

#include "zxcommon.h"
#include "zxdiag/hooks.hpp"
#include "zxdiag/json.hpp"

namespace zx::diag {
namespace {

struct Topic {
    const char* name;
    const char* about;
    Answer (*answer)(const Question& question);
};

Answer answer_help(const Question& question);

Answer answer_program(const Question&) {
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "program", program_invocation_short_name);
    cJSON_AddNumberToObject(object, "pid", getpid());
    cJSON_AddStringToObject(object, "library", zxcommon_api_version());
    cJSON_AddBoolToObject(object, "counting", is_on() ? 1 : 0);
    return {object, nullptr};
}

constexpr Topic kTopics[] = {
    {"help", "what can be asked", answer_help},
    {"program", "the name, the process, the version of the library, and whether it counts",
     answer_program},
    {"locks", "each lock: its holder, how often it was taken, the longest waits", answer_locks},
    {"log", "the last lines=N lines of all levels, or of level=L and tag=T", answer_log},
    {"tail", "each line from now on, or those of level=L and tag=T", answer_tail},
    {"level", "sets the level of the log to level=L for seconds=N", answer_level},
    {"tags", "suppresses the tags=T in the log for seconds=N", answer_tags},
    {"dump", "writes the lines in memory to the log", answer_dump},
    {"trace", "what the threads do for seconds=N, for Chrome and Perfetto", answer_trace},
    {"fifos", "each block FIFO: what it holds, how fast it runs, what was lost", answer_fifos},
    {"lists", "each shared list: its nodes and their span in time", answer_lists},
    {"threads", "each thread: its state word and its processor time", answer_threads},
    {"descriptors", "how many descriptors are open, by kind", answer_descriptors},
    {"memory", "the tracked buffers by place: mark=NAME, since=NAME, by=name|place", answer_memory},
    {"waits", "who waits for whom, deadlocks, and locks that are taken in different orders",
     answer_waits},
};

Answer answer_help(const Question&) {
    cJSON* const object = cJSON_CreateObject();
    cJSON* const topics = cJSON_AddObjectToObject(object, "topics");
    for (const Topic& topic : kTopics) {
        cJSON_AddStringToObject(topics, topic.name, topic.about);
    }
    return {object, nullptr};
}

}  // namespace

Question::Question(const char* text, std::size_t size) : text_{}, name_(text_), pairs_{} {
    if (size > kLongest) {
        return;
    }
    std::memcpy(text_, text, size);
    char* rest = nullptr;
    const char* const name = strtok_r(text_, " \t\r\n", &rest);
    for (char* part = name != nullptr ? strtok_r(nullptr, " \t\r\n", &rest) : nullptr;
         part != nullptr; part = strtok_r(nullptr, " \t\r\n", &rest)) {
        char* const equals = std::strchr(part, '=');
        if (equals == nullptr || pair_count_ == kMostPairs) {
            name_ = "";
            return;
        }
        *equals = '\0';
        pairs_[pair_count_++] = {part, equals + 1};
    }
    name_ = name != nullptr ? name : "";
}

const char* Question::value(const char* key) const {
    const auto* const end = pairs_ + pair_count_;
    const auto* const found = std::find_if(
        pairs_, end, [&](const auto& pair) { return std::string_view(pair.key) == key; });
    return found != end ? found->value : nullptr;
}

std::int64_t Question::number(const char* key, std::int64_t usual, std::int64_t least,
                              std::int64_t most) const {
    const char* const text = value(key);
    if (text == nullptr) {
        return usual;
    }
    std::int64_t number = 0;
    const char* const end = text + std::strlen(text);
    const auto [at, code] = std::from_chars(text, end, number);
    return code == std::errc() && at == end && least <= number && number <= most ? number : kWrong;
}

Answer answer_to(const Question& question) {
    const auto* const found = std::find_if(
        std::begin(kTopics), std::end(kTopics),
        [&](const Topic& topic) { return std::string_view(topic.name) == question.name(); });
    return found != std::end(kTopics)
               ? found->answer(question)
               : Answer{error_object("there is no such question: ask 'help'"), nullptr};
}

cJSON* error_object(const char* text) {
    cJSON* const object = cJSON_CreateObject();
    add_text(object, "error", text);
    return object;
}

}  // namespace zx::diag
