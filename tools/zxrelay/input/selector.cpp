#include "input/selector.hpp"

#include "zxcommon.hpp"

namespace relay {
namespace {

using zxcommon::Level, zxcommon::log;

constexpr char kTag[] = "RELAY";
constexpr std::uint64_t kSilenceUs = 2000000;
constexpr std::uint64_t kSteadyUs = 2000000;
constexpr std::uint64_t kPauseUs = 1000000;  // a longer pause, and an input is not steady

}  // namespace

// At the beginning every input counts as heard: the main one has two seconds to begin.
Selector::Selector(std::vector<std::string> names, std::uint64_t now_us)
    : names_(std::move(names)), inputs_(names_.size(), Input{now_us, now_us}) {}

bool Selector::admits(std::size_t rank, std::uint64_t now_us) {
    Input& input = inputs_[rank];
    if (now_us - input.last_us > kPauseUs) {
        input.since_us = now_us;
    }
    if (rank != chosen_ && takes_over(rank, now_us)) {
        log({Level::notice, kTag}, "the stream of %s %s that of %s", name(rank).c_str(),
            rank < chosen_ ? "is back and replaces" : "takes the place of", name(chosen_).c_str());
        chosen_ = rank;
    }
    input.last_us = now_us;
    return rank == chosen_;
}

bool Selector::takes_over(std::size_t rank, std::uint64_t now_us) const {
    for (std::size_t better = 0; better < rank; ++better) {
        if (!is_silent(better, now_us)) {
            return false;
        }
    }
    const bool is_steady = now_us - inputs_[rank].since_us >= kSteadyUs;
    return rank > chosen_ || is_steady || is_silent(chosen_, now_us);
}

bool Selector::is_silent(std::size_t rank, std::uint64_t now_us) const {
    return now_us - inputs_[rank].last_us >= kSilenceUs;
}

}  // namespace relay
