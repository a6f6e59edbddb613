#include "show/counts.hpp"

#include <algorithm>
#include <vector>

namespace capture {

void Counts::add_passed(const Frame& frame, std::string_view protocol) {
    ++passed_;
    bytes_ += frame.length;
    auto it = protocols_.find(protocol);
    if (it == protocols_.end()) {
        it = protocols_.emplace(protocol, 0).first;
    }
    ++it->second;
}

std::string Counts::text() const {
    std::string text = "frames: " + std::to_string(seen_) + " seen, " + std::to_string(passed_) +
                       " passed, " + std::to_string(bytes_) + " bytes";
    std::vector<std::pair<std::string, std::uint64_t>> rows(protocols_.begin(), protocols_.end());
    std::ranges::stable_sort(rows, std::greater(), &std::pair<std::string, std::uint64_t>::second);
    const char* before = ": ";
    for (const auto& [name, count] : rows) {
        text += before + name + " " + std::to_string(count);
        before = ", ";
    }
    return text;
}

}  // namespace capture
