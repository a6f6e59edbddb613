#include "answer.hpp"

#include <algorithm>
#include <string>

#include "common/failure.hpp"

namespace ctl {
namespace {

// JSON has no control characters: they are escaped.
bool has_control(std::string_view line) {
    return std::ranges::any_of(line, [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

// At least as many as the parser would make nodes.
std::size_t part_count(std::string_view line) {
    return 1 + static_cast<std::size_t>(std::ranges::count_if(
                   line, [](char c) { return c == ',' || c == '[' || c == '{'; }));
}

}  // namespace

Json parse_answer(std::string_view line) {
    if (part_count(line) > kMostParts) {
        throw tools::Failure("the answer has more than " + std::to_string(kMostParts) + " parts");
    }
    Json answer;
    if (!has_control(line)) {
        const char* end = nullptr;
        answer.reset(cJSON_ParseWithLengthOpts(line.data(), line.size(), &end, 0));
        if (end != line.data() + line.size()) {
            answer.reset();
        }
    }
    if (cJSON_IsObject(answer.get()) == 0) {
        throw tools::Failure("the answer is not a JSON object");
    }
    return answer;
}

std::string_view text_member(const cJSON* object, const char* key) {
    const cJSON* const its = member(object, key);
    return cJSON_IsString(its) != 0 ? its->valuestring : std::string_view();
}

double number_member(const cJSON* object, const char* key) {
    const cJSON* const its = member(object, key);
    return cJSON_IsNumber(its) != 0 ? its->valuedouble : 0;
}

std::string_view error_of(const cJSON* answer) {
    const cJSON* const error = member(answer, "error");
    return error == nullptr             ? std::string_view()
           : cJSON_IsString(error) != 0 ? error->valuestring
                                        : "an error without a text";
}

TraceShape shape_of_trace(std::string_view line) {
    constexpr std::size_t kDeepest = 64;
    constexpr std::size_t kEventDepth = 3;              // in an object in the array of the object
    constexpr std::string_view kSpan = "\"ph\":\"X\"";  // others tell the names of threads
    if (!line.starts_with("{\"traceEvents\"") || has_control(line)) {
        return {};
    }
    TraceShape shape;
    std::string open;
    bool is_in_text = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (is_in_text) {
            i += c == '\\' ? 1U : 0U;
            is_in_text = c != '"';
        } else if (c == '"') {
            is_in_text = true;
            shape.spans +=
                open.size() == kEventDepth && line.substr(i).starts_with(kSpan) ? 1U : 0U;
        } else if (c == '{' || c == '[') {
            open += c == '{' ? '}' : ']';
        } else if (c == '}' || c == ']') {
            if (open.empty() || open.back() != c) {
                return {};
            }
            open.pop_back();
            if (open.empty()) {
                shape.is_whole = i + 1 == line.size();
                return shape;
            }
        }
        if (open.size() > kDeepest) {
            return {};
        }
    }
    return {};
}

}  // namespace ctl
