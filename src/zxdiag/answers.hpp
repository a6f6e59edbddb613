// The questions that a program answers about itself. Each answer is a JSON object.
#pragma once

#include <cjson/cJSON.h>

#include <cstddef>
#include <cstdint>

namespace zx::diag {

// "NAME KEY=VALUE KEY=VALUE": what is asked, split into its parts.
class Question {
public:
    // Keeps a copy of the text. One that is too long, or has too many parts, has an empty name.
    explicit Question(const char* text, std::size_t size);

    [[nodiscard]] const char* name() const { return name_; }
    // NULL: the key is not there.
    [[nodiscard]] const char* value(const char* key) const;
    // The value as a number; `usual` if the key is not there, `wrong` if it is no number from
    // `least` to `most`.
    [[nodiscard]] std::int64_t number(const char* key, std::int64_t usual, std::int64_t least,
                                      std::int64_t most) const;
    static constexpr std::int64_t kWrong = INT64_MIN;

    static constexpr std::size_t kLongest = 1024;

private:
    static constexpr std::size_t kMostPairs = 8;
    char text_[kLongest + 1];
    const char* name_;
    struct {
        const char* key;
        const char* value;
    } pairs_[kMostPairs];
    std::size_t pair_count_ = 0;
};

// What gives several answers, one after the other, until the one who asks has enough.
class Series {
public:
    Series() = default;
    Series(const Series&) = delete;
    Series& operator=(const Series&) = delete;
    virtual ~Series() = default;
    // Called about ten times a second by the thread that serves. NULL: nothing now.
    virtual cJSON* next() = 0;
    // True when nothing follows.
    [[nodiscard]] virtual bool is_over() const = 0;
};

struct Answer {
    cJSON* object = nullptr;   // belongs to the caller; NULL: no memory
    Series* series = nullptr;  // the same; further answers follow
};

// Answers with an object that has "error" if the question is wrong.
[[nodiscard]] Answer answer_to(const Question& question);

// {"error": text}
[[nodiscard]] cJSON* error_object(const char* text);

// The functions that answer. Each is in the file of its topic.
Answer answer_descriptors(const Question& question);
Answer answer_dump(const Question& question);
Answer answer_fifos(const Question& question);
Answer answer_level(const Question& question);
Answer answer_lists(const Question& question);
Answer answer_locks(const Question& question);
Answer answer_log(const Question& question);
Answer answer_tags(const Question& question);
Answer answer_tail(const Question& question);
Answer answer_trace(const Question& question);
Answer answer_threads(const Question& question);
Answer answer_memory(const Question& question);
Answer answer_waits(const Question& question);

}  // namespace zx::diag
