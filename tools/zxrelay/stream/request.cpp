#include "stream/request.hpp"

#include "common/number.hpp"

namespace relay {
namespace {

constexpr std::string_view kWord = "last ";
constexpr std::size_t kLongest = 16;

std::optional<std::uint64_t> seconds_of(std::string_view line) {
    if (line.ends_with('\r')) {
        line.remove_suffix(1);
    }
    if (line.size() > kLongest || !line.starts_with(kWord)) {
        return std::nullopt;
    }
    line.remove_prefix(kWord.size());
    return tools::parse_number(line);
}

}  // namespace

std::optional<std::uint64_t> RequestReader::feed(std::string_view bytes) {
    std::optional<std::uint64_t> asked;
    for (const char c : bytes) {
        if (c == '\n') {
            const auto seconds = seconds_of(line_);
            asked = seconds ? seconds : asked;
            line_.clear();
        } else if (line_.size() <= kLongest + 1) {
            line_ += c;
        }
    }
    return asked;
}

}  // namespace relay
